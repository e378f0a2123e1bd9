#include "ui/UiFixture.h"

// The screen-cleaning page, the login item, section headers, the confirmation's language
// and the rows of the clean-up lists.
class UiPagesTest final : public QObject, protected UiFixture
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { setUp(); }
    void init() { reset(); }
    void cleanup() { tidy(); }

    void screenPage_data()
    {
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<QString>("error");
        QTest::newRow("trusted") << true << kLockEn;
        QTest::newRow("untrusted") << false << kPermissionEn;
    }
    // A refused start shows why and makes no window; one that succeeds clears the message.
    // The box only asks for the permission; trust is read again whenever the page shows.
    void screenPage()
    {
        QFETCH(bool, trusted);
        Screen rig(trusted);
        rig.lock->accepts = false;
        ScreenCleanView page(rig.mode);
        page.show();
        const QWidget *box = page.findChild<QWidget *>(u"permissionBox"_s);
        QCOMPARE(box->isVisible(), !trusted);
        const auto *message = page.findChild<QLabel *>(u"error"_s);
        QVERIFY(!message->isVisible() && rig.log.isEmpty());
        if (!trusted) {
            button(&page, u"Request permission"_s)->click();
            button(&page, u"Open System Settings"_s)->click();
            QVERIFY(rig.log == QStringList{u"requestTrust"_s} && !message->isVisible());
        }
        QAbstractButton *start = button(&page, u"Start cleaning mode"_s);
        start->click();
        QCOMPARE(rig.log.last(), trusted ? u"install"_s : u"requestTrust"_s);
        QVERIFY(message->isVisible() && message->text() == fetch<QString>("error"));
        QVERIFY(!rig.mode.active() && rig.windows.windows().isEmpty());
        if (!trusted) {
            page.hide();
            rig.lock->isTrusted = true;
            page.show();
            QVERIFY(!box->isVisible());
        }
        rig.lock->isTrusted = rig.lock->accepts = true;
        start->click();
        QVERIFY(rig.mode.active() && !message->isVisible() && !box->isVisible());
        // One black window per screen, on top, never taking input, counting Esc.
        const QList<QScreen *> screens = QGuiApplication::screens();
        const QList<ScreenCleanOverlay *> windows = rig.windows.windows();
        QCOMPARE(windows.size(), screens.size());
        for (qsizetype i = 0; i < screens.size(); ++i) {
            QVERIFY(windows[i]->isVisible() && windows[i]->geometry() == screens[i]->geometry());
            QVERIFY(windows[i]->windowFlags().testFlags(Qt::WindowStaysOnTopHint |
                                                        Qt::WindowTransparentForInput));
        }
        QCOMPARE(windows[0]->grab().toImage().pixelColor(2, 2), QColor(Qt::black));
        rig.lock->esc();
        QTRY_VERIFY(windows[0]->findChild<QLabel *>(u"hint"_s)->text().endsWith(u"(1/3)"_s));
        QPointer<ScreenCleanOverlay> first = windows[0];
        rig.mode.stop();
        QVERIFY(first.isNull() && rig.windows.windows().isEmpty());
    }

    void loginItem()
    {
#ifndef Q_OS_LINUX
        QSKIP("the system's login item would register this test binary for the user");
#endif
        const auto user = [] { return Locations::fromEnvironment().userFolders(); };
        const QString entry = home(u"cfg/autostart/quorvel.desktop"_s);
        QVERIFY(!Login::enabled(user()));
        QCOMPARE(Login::set(user(), true), std::nullopt);
        QVERIFY(Login::enabled(user()));
        QFile file(entry);
        const QByteArray exec = "\nExec=" + QCoreApplication::applicationFilePath().toUtf8();
        QVERIFY(file.open(QIODevice::ReadOnly) && file.readAll().contains(exec + '\n'));
        QCOMPARE(Login::execValue(u"/a b/\"`$\\%"_s), u"\"/a b/\\\\\"\\\\`\\\\$\\\\\\\\%%\""_s);
        QVERIFY(!(QFile::permissions(home(u"cfg"_s)) & QFile::ReadOther));
        QCOMPARE(Login::set(user(), true), std::nullopt);
        QCOMPARE(Login::set(user(), false), std::nullopt);
        QVERIFY(!QFileInfo::exists(entry) && !Login::enabled(user()));
        QCOMPARE(Login::set(user(), false), std::nullopt);
        // Session managers skip an entry that is hidden or switched off.
        const QByteArray plain = "[Desktop Entry]\nType=Application\nExec=q\n";
        const std::pair<QByteArray, bool> entries[] = {
            {plain, true},
            {plain + "Hidden=true\n", false},
            {plain + "X-GNOME-Autostart-enabled=false\n", false},
            {plain + "[Desktop Action x]\nHidden=true\n", true},
            {"[Other]\nExec=q\n", false}};
        for (const auto &[text, on] : entries) {
            writeFile(entry, text);
            QVERIFY2(Login::enabled(user()) == on, text.constData());
        }
        // A file where the autostart folder must go: the refusal is reported, it stays off.
        QVERIFY(QDir(home(u"cfg/autostart"_s)).removeRecursively());
        writeFile(home(u"cfg/autostart"_s), "file");
        QVERIFY(!Login::set(user(), true).value_or(QString()).isEmpty() && !Login::enabled(user()));
    }

    // The title leads; only with items do the size (above 0), All and None follow, after
    // the flexible space.
    void sectionHeader_data()
    {
        QTest::addColumn<QList<qint64>>("sizes");
        QTest::addColumn<QStringList>("trailing");
        const QStringList both{u"All"_s, u"None"_s};
        QTest::newRow("no items") << QList<qint64>{} << QStringList{};
        QTest::newRow("sized") << QList<qint64>{4000, 1000} << QStringList{Fmt::bytes(5000)} + both;
        QTest::newRow("sizeless") << QList<qint64>{0, 0} << both;
    }
    void sectionHeader()
    {
        QFETCH(QList<qint64>, sizes);
        CleanModel model({CleanCategory::logs}, CleanModel::Services::real(m_system));
        CleanSection section(model, CleanCategory::logs);
        QList<CleanItem> items;
        for (const qint64 bytes : sizes)
            items.emplace_back().bytes = bytes;
        section.setItems(items);
        section.resize(600, 300);
        section.show();
        QMap<int, QString> order; // the visible texts by their left edge
        for (QWidget *w : section.findChild<SectionHeader *>()->findChildren<QWidget *>())
            if (w->isVisible())
                order.insert(w->x(), w->property("text").toString());
        QCOMPARE(order.values(),
                 QStringList{title(CleanCategory::logs)} + fetch<QStringList>("trailing"));
        QVERIFY(order.size() == 1 || order.keys()[1] > 300);
    }

    // Qt's own Cancel speaks the interface language in a destructive confirmation.
    void confirmationLanguage()
    {
        for (const auto &[zh, cancel] : {std::pair(true, u"取消"_s), {false, u"Cancel"_s}}) {
            L10n::overrideForTesting(zh); // English last: the later tests run in it
            QVERIFY(QtTexts::follow());
            Overview page(*m_system);
            button(&page.view, L10n::pick(u"Empty Trash"_s, u"清空废纸篓"_s))->click();
            QCOMPARE(openBox()->button(QMessageBox::Cancel)->text(), cancel);
            cleanup();
        }
    }

    // Space ticks the current row and a click on the tick toggles it, one on the text does
    // not. The reveal icon, the key, the row's menu and Tab to the real button (named for
    // screen readers) show the row's own item. The sidebar keeps its highlight; the window's
    // models die with it.
    void rows()
    {
        for (const QString &name : {u"one"_s, u"two"_s, u"three"_s})
            writeFile(home(u"Library/Caches/"_s + name), "data");
        auto window = scannedCleanup();
        const QSet<QString> &selected = window->cleanModel(ToolPage::cleanup).selected();
        CleanSection *section = sectionOf(window->currentPage(), CleanCategory::userCache);
        CleanItemsView *view = section->view();
        QTest::keyClick(view, Qt::Key_Down);
        const QModelIndex row = view->model()->index(1, 0);
        const QString path = row.data(CleanItemsModel::PathRole).toString();
        QTest::keyClick(view, Qt::Key_Space);
        QVERIFY(view->currentIndex() == row && !ticked(row) && ticked(row.siblingAtRow(0)));
        const QRect rect = view->visualRect(row);
        for (const QPoint at : {rect.center(), CleanItemDelegate::tickRect(rect).center()}) {
            QVERIFY(!selected.contains(path) && selected.size() == 2);
            QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
        }
        const qsizetype before = m_system->asked().size();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                          CleanItemDelegate::revealRect(rect).center());
        QCOMPARE(selected.size(), 3);
        QListWidget *bar = window->sidebar(); // a Ctrl+click keeps the page's highlight
        QTest::mouseClick(bar->viewport(), Qt::LeftButton, Qt::ControlModifier,
                          bar->visualItemRect(bar->item(1)).center());
        QCOMPARE(bar->selectedItems(), QList{bar->item(1)});
        auto *reveal = section->findChild<RevealButton *>();
        QAccessibleInterface *named = QAccessible::queryAccessibleInterface(reveal);
        QVERIFY(named->text(QAccessible::Name) == u"Show in Finder"_s &&
                named->parent()->indexOfChild(named) >= 0); // in the tree a reader walks
        QTest::keyClick(view, Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier);
        QContextMenuEvent menuKey(QContextMenuEvent::Keyboard, {}, {});
        QApplication::sendEvent(view, &menuKey);
        if (auto *menu = view->findChild<QMenu *>(); menu && menu->actions().size() == 1)
            menu->actions().first()->trigger();
        view->setFocus(); // the click above focused the sidebar
        QTest::keyClick(view, Qt::Key_Tab);
        QCOMPARE(window->focusWidget(), reveal);
        QTest::keyClick(reveal, Qt::Key_Space);
        QCOMPARE(m_system->asked().mid(before), QStringList(4, u"reveal "_s + path));
        QPointer<AppUpdater> updater = &window->updater();
        QPointer<CleanModel> model = &window->cleanModel(ToolPage::cleanup);
        QVERIFY(window.release()->close());
        QTRY_VERIFY(model.isNull() && updater.isNull());
    }
};

QTEST_MAIN(UiPagesTest)
#include "tst_uipages.moc"
