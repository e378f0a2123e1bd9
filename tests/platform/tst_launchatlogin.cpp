#include <QtTest>

// (being written)
class Placeholder : public QObject
{
    Q_OBJECT
};

QTEST_MAIN(Placeholder)
#include "tst_launchatlogin.moc"
