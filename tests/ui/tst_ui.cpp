#include "ui/UiFixture.h"

// The panel, the window's navigation and the clean-up, Overview, Trash and updates pages.
class UiTest final : public QObject, protected UiFixture
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { setUp(); }
    void init() { reset(); }
    void cleanup() { tidy(); }

    // Each sample refills the same labels: a warning turns a tile's value and bar orange and
    // goes with its figures; the grade takes its colour. Open closes only a popup; Quit quits.
    void panel()
    {
        Fake machine;
        machine.pressure = 4;
        machine.used = 4 * GB;
        machine.battery = BatteryReading{true, 15, false, true};
        SystemStats stats(machine.sources());
        QStringList calls;
        HealthPanel panel(
            stats, [&] { calls << u"open"_s; }, [&] { calls << u"quit"_s; });
        stats.samplePass();
        const QList<QLabel *> labels = panel.findChildren<QLabel *>();
        const auto part = [&](const QString &tile, const QString &name) {
            return panel.findChild<QWidget *>(tile)->findChild<QWidget *>(name);
        };
        const auto bar = [&](const QString &tile) {
            const QWidget *b = part(tile, u"bar"_s);
            return u"%1 %2"_s.arg(b->property("ratio").toDouble())
                .arg(b->property("color").value<QColor>() == Theme::fair() ? u"warn" : u"-");
        };
        const auto *memory = part(u"memoryTile"_s, u"value"_s);
        const auto *grade = panel.findChild<QLabel *>(u"grade"_s);
        QCOMPARE(memory->palette().color(QPalette::WindowText), Theme::fair());
        QCOMPARE(bar(u"memoryTile"_s) + u", "_s + bar(u"batteryTile"_s), u"0.25 warn, 0.15 -"_s);
        QCOMPARE(grade->text(), HealthTiles::gradeWord(HealthGrade::poor));
        QCOMPARE(grade->palette().color(QPalette::WindowText), Theme::poor());
        machine.pressure = 2;
        machine.battery->onAC = false;
        stats.samplePass();
        QCOMPARE(bar(u"batteryTile"_s), u"0.15 warn"_s);
        QCOMPARE(grade->palette().color(QPalette::WindowText), Theme::fair());
        machine.pressure = 1;
        stats.samplePass();
        QCOMPARE(memory->palette().color(QPalette::WindowText),
                 panel.palette().color(QPalette::WindowText));
        QCOMPARE(grade->palette().color(QPalette::WindowText), Theme::good());
        QCOMPARE(panel.findChildren<QLabel *>(), labels);
        for (const Qt::WindowType type : {Qt::Widget, Qt::Popup}) {
            panel.setWindowFlags(type);
            panel.show();
            panel.findChild<QAbstractButton *>(u"openTools"_s)->click();
            QCOMPARE(panel.isVisible(), type == Qt::Widget);
        }
        panel.findChild<QAbstractButton *>(u"quit"_s)->click();
        QCOMPARE(calls, (QStringList{u"open"_s, u"open"_s, u"quit"_s}));
    }

    // Nav moves the row and a new detail together, and the row moves Nav; the sidebar speaks.
    void navigation()
    {
        L10n::overrideForTesting(true);
        ToolsWindow window(m_system, *m_overview);
        const char *kinds[] = {"OverviewView",  "CleanListView",   "CleanListView", "CleanListView",
                               "CleanListView", "ScreenCleanView", "UpdatesView"};
        for (int row = 0; row < 7; ++row) {
            const ToolPage page = kAllToolPages[size_t(row)];
            QCOMPARE(window.sidebar()->item(row)->text(), title(page));
            QPointer<QWidget> before = window.currentPage();
            Nav::shared().setPage(page);
            QCOMPARE(window.sidebar()->currentRow(), row);
            QCOMPARE(window.currentPage()->metaObject()->className(), kinds[row]);
            QList<CleanCategory> sections;
            for (const CleanSection *s : window.currentPage()->findChildren<CleanSection *>())
                sections << s->category();
            QCOMPARE(sections, cleanCategories(page).value_or(QList<CleanCategory>{}));
            QTRY_VERIFY(row == 0 || before.isNull());
            window.sidebar()->setCurrentRow((row + 3) % 7);
            QCOMPARE(Nav::shared().page(), kAllToolPages[size_t((row + 3) % 7)]);
        }
    }

    // A page scans on first appearance only; its sections say why they are empty or show
    // their size and All/None; the bar follows the scan and the ticked sum.
    void cleanPageStates()
    {
        writeFile(home(u"Library/Caches/a.cache"_s), QByteArray(4096, 'a'));
        writeFile(home(u"Library/Caches/b.cache"_s), QByteArray(8192, 'b'));
        Nav::shared().setPage(ToolPage::cleanup);
        ToolsWindow window(m_system, *m_overview);
        CleanModel &model = window.cleanModel(ToolPage::cleanup);
        QWidget *page = window.currentPage();
        QCOMPARE(sectionTexts(page, CleanCategory::ai), QStringList{u"Not scanned yet."_s});
        Nav::shared().setPage(ToolPage::overview);
        window.show();
        QVERIFY(!model.scanning()); // neither building nor another page is appearing
        Nav::shared().setPage(ToolPage::cleanup);
        page = window.currentPage();
        QVERIFY(sectionTexts(page, CleanCategory::ai).value(0).startsWith(u"Scanning… "_s));
        QVERIFY(page->findChild<Spinner *>()->isRunning() && !button(page, u"Scan"_s)->isEnabled());
        QVERIFY(idle(model));
        QVERIFY(!page->findChild<Spinner *>()->isRunning() && button(page, u"Scan"_s)->isEnabled());
        QCOMPARE(sectionTexts(page, CleanCategory::ai), QStringList{u"Nothing found."_s});
        qint64 caches = 0;
        for (const CleanItem &item : model.items(CleanCategory::userCache))
            caches += item.bytes;
        QCOMPARE(sectionTexts(page, CleanCategory::userCache),
                 (QStringList{Fmt::bytes(caches), u"All"_s, u"None"_s})); // sorted
        QAbstractButton *remove = button(page, kRemove, true);
        QVERIFY(remove->isEnabled() && remove->text() == kRemove + u" · "_s + Fmt::bytes(caches));
        model.setSelected(QSet<QString>{});
        QVERIFY(!remove->isEnabled() && remove->text() == kRemove);
        // Coming back shows the same scan and ticks, without another.
        const QList<CleanItem> items = model.items();
        Nav::shared().setPage(ToolPage::overview);
        Nav::shared().setPage(ToolPage::cleanup);
        QVERIFY(!model.scanning() && model.items().constData() == items.constData());
        const CleanItemsModel *rows =
            sectionOf(window.currentPage(), CleanCategory::userCache)->view()->rows();
        QVERIFY(rows->rowCount() == 2 && !ticked(rows->index(0)) && !ticked(rows->index(1)));
        model.setSelected(items.first().path, true);
        button(window.currentPage(), u"Scan"_s)->click();
        QVERIFY(!button(window.currentPage(), kRemove, true)->isEnabled());
        QVERIFY(idle(model));
    }

    // All and None touch only their own section, and repaint the ticks in place.
    void allNone_data()
    {
        QTest::addColumn<CleanCategory>("category");
        QTest::addColumn<QString>("button");
        QTest::addColumn<QStringList>("expected");
        const CleanCategory caches = CleanCategory::userCache, logs = CleanCategory::logs;
        QTest::newRow("None, caches") << caches << u"None"_s << QStringList{u"Logs/y"_s};
        QTest::newRow("None, logs") << logs << u"None"_s << QStringList{u"Caches/b"_s};
        QTest::newRow("All, caches")
            << caches << u"All"_s << QStringList{u"Caches/a"_s, u"Caches/b"_s, u"Logs/y"_s};
    }
    void allNone()
    {
        QFETCH(CleanCategory, category);
        for (const QString &name : {u"Caches/a"_s, u"Caches/b"_s, u"Logs/x"_s, u"Logs/y"_s})
            writeFile(home(u"Library/"_s + name), "data");
        const auto window = scannedCleanup();
        CleanModel &model = window->cleanModel(ToolPage::cleanup);
        model.setSelected(home(u"Library/Caches/a"_s), false);
        model.setSelected(home(u"Library/Logs/x"_s), false);
        QSet<QString> paths;
        for (const QString &name : fetch<QStringList>("expected"))
            paths << home(u"Library/"_s + name);
        QWidget *page = window->currentPage();
        QSignalSpy resets(sectionOf(page, category)->view()->rows(),
                          &QAbstractItemModel::modelReset);
        button(sectionOf(page, category), fetch<QString>("button"))->click();
        QCOMPARE(model.selected(), paths);
        for (const CleanSection *s : page->findChildren<CleanSection *>()) {
            for (int r = 0; r < s->view()->rows()->rowCount(); ++r) {
                const QModelIndex row = s->view()->rows()->index(r);
                QCOMPARE(ticked(row),
                         paths.contains(row.data(CleanItemsModel::PathRole).toString()));
            }
        }
        QCOMPARE(resets.count(), 0);
    }

    // Return and Cancel move nothing; the destructive choice moves exactly the ticked items
    // to the Trash and the log, leaving an unticked one and one the guard refuses.
    void removal()
    {
        const QString caches = home(u"Library/Caches/"_s);
        for (const QString &name : {u"one/blob"_s, u"two.cache"_s, u"kept.cache"_s, u"x.vmdk"_s})
            writeFile(caches + name, QByteArray(4096, 'x'));
        const auto window = scannedCleanup();
        CleanModel &model = window->cleanModel(ToolPage::cleanup);
        model.setSelected(caches + u"kept.cache"_s, false);
        qint64 bytes = 0;
        for (const CleanItem &item : model.selectedItems())
            bytes += item.bytes;
        for (const int how : {int(Qt::Key_Return), 0, 1}) {
            button(window->currentPage(), kRemove, true)->click();
            QCOMPARE(openBox()->text(),
                     u"Move 3 item(s), "_s + Fmt::bytes(bytes) + u", to the Trash?"_s);
            answer(how);
            QTRY_VERIFY(!openBox());
            QVERIFY(idle(model));
            QCOMPARE(QFileInfo::exists(caches + u"two.cache"_s), how != 1);
        }
        const QString trash = home(u".local/share/Trash/files/"_s);
        QVERIFY(QFileInfo::exists(trash + u"one/blob"_s) &&
                QFileInfo::exists(trash + u"two.cache"_s));
        for (const QString &stays : {u"kept.cache"_s, u"x.vmdk"_s})
            QVERIFY(QFileInfo::exists(caches + stays) && !QFileInfo::exists(trash + stays));
        QFile log(home(u"Library/Logs/Quorvel/removals.log"_s));
        QVERIFY(log.open(QIODevice::ReadOnly) && log.readAll().count('\n') == 2);
        QVERIFY(texts(window->currentPage()).contains(model.message().value_or(u"-"_s)));
    }

    // The ring's centre follows the statistics; the legend, its hint and Scan follow the
    // folder scan; coming back re-measures the Trash only.
    void overviewDisk()
    {
        Overview page(*m_system);
        const auto shows = [&](const QString &text) { return texts(&page.view).contains(text); };
        QVERIFY(shows(u"v1.2"_s) && shows(u"Press Scan to measure folder sizes."_s));
        page.machine.disk = {2000 * GB, 125 * GB};
        page.stats.samplePass();
        QVERIFY(shows(Fmt::bytes(125 * GB)) && shows(u"of "_s + Fmt::bytes(2000 * GB)));
        page.disk->cats = {{u"desktop"_s, u"Desktop"_s, 4096}};
        QAbstractButton *scan = button(&page.view, u"Rescan"_s);
        page.view.appeared();
        QCOMPARE(texts(&page.view).filter(u"Measuring"_s).size(), 1);
        QVERIFY(!scan->isEnabled() && scan->text() == u"Scanning…"_s);
        QTRY_VERIFY(shows(u"Desktop"_s) && shows(Fmt::bytes(4096)));
        QVERIFY(scan->isEnabled() && scan->text() == u"Rescan"_s);
        QVERIFY(texts(&page.view).filter(u"Measuring"_s).isEmpty());
        QTRY_COMPARE(page.disk->trashReads.load(), 1);
        page.disk->trash = TrashSize{8192, 5, {}};
        page.view.appeared();
        QTRY_VERIFY(shows(u"5 item(s)"_s));
        QCOMPARE(page.disk->scans.load(), 1);
        page.disk->cats = {{u"other"_s, u"Other"_s, 1'000'000}};
        scan->click();
        QTRY_VERIFY(shows(u"Other"_s) && !shows(u"Desktop"_s)); // replaced, not added to
    }

    // The Trash box's three states, and Empty Trash behind a destructive confirmation.
    void trash_data()
    {
        QTest::addColumn<int>("state");  // 0 not measured, 1 known, 2 unreadable
        QTest::addColumn<int>("answer"); // as answer() takes it
        QTest::newRow("not measured, cancelled") << 0 << 0;
        QTest::newRow("known, emptied") << 1 << 1;
        QTest::newRow("unreadable, emptied") << 2 << 1;
        QTest::newRow("unreadable, Escape") << 2 << int(Qt::Key_Escape);
    }
    void trash()
    {
        QFETCH(int, state);
        Overview page(*m_system);
        if (state == 1)
            page.disk->trash = TrashSize{2'500'000, 3, {}};
        if (state > 0) {
            page.model.refreshTrash();
            QTRY_VERIFY(page.model.trash() || page.model.trashUnreadable());
        }
        const QStringList marks{u"…"_s, u"3 item(s)"_s, u"Size unavailable"_s};
        for (int i = 0; i < 3; ++i)
            QCOMPARE(texts(&page.view).contains(marks[i]), i == state);
        const qsizetype asked = m_system->asked().count(u"full disk access"_s);
        if (QAbstractButton *grant = button(&page.view, u"Grant Full Disk Access…"_s))
            grant->click();
        QCOMPARE(m_system->asked().count(u"full disk access"_s) - asked, state == 2 ? 1 : 0);
        button(&page.view, u"Empty Trash"_s)->click();
        answer(fetch<int>("answer"));
        QTRY_VERIFY(!openBox());
        const bool emptied = fetch<int>("answer") == 1;
        QTRY_COMPARE(texts(&page.view).contains(u"Trash emptied."_s), emptied);
        QTest::qWait(20);
        QCOMPARE(page.disk->empties.load(), emptied ? 1 : 0);
    }

    // The switch shows what the system holds, so a refused change springs back.
    void loginSwitch()
    {
        for (const bool accepts : {true, false})
            for (const bool initially : {false, true}) {
                m_system->loginRefusal.reset();
                Q_UNUSED(m_system->setLoginItem(initially));
                if (!accepts)
                    m_system->loginRefusal = u"no"_s;
                Overview page(*m_system);
                auto *box =
                    qobject_cast<QCheckBox *>(button(&page.view, u"Start Quorvel at login"_s));
                QCOMPARE(box->isChecked(), initially);
                box->click();
                QVERIFY(box->isChecked() == (accepts != initially) &&
                        m_system->loginItemEnabled() == box->isChecked());
            }
    }

    // Homebrew rows upgrade through the updater, the others hand over to an application; a
    // check disables Check now and is not repeated on return.
    void updates_data()
    {
        QTest::addColumn<Source>("source");
        QTest::addColumn<QString>("app"); // empty: the bundle is unknown
        QTest::addColumn<QString>("action");
        const QString app = u"/Applications/Lumen.app"_s, open = u"Open app to update"_s;
        QTest::newRow("formula") << Source::brewFormula << QString() << u"Upgrade"_s;
        QTest::newRow("App Store") << Source::appStore << app << u"Open App Store"_s;
        QTest::newRow("appcast") << Source::sparkle << app << open;
        QTest::newRow("appcast, no bundle") << Source::sparkle << QString() << open;
    }
    void updates()
    {
        QFETCH(Source, source);
        QFETCH(QString, app);
        Updates page;
        page.brew = {{u"id"_s, u"Lumen"_s, u"1.0"_s, u"2.0"_s, source,
                      app.isEmpty() ? std::nullopt : std::optional(app)}};
        page.view.appeared();
        QAbstractButton *check = button(&page.view, u"Check now"_s);
        QVERIFY(page.view.findChild<Spinner *>()->isRunning() && !check->isEnabled());
        QVERIFY(page.settled());
        QVERIFY(check->isEnabled() && !page.view.findChild<Spinner *>()->isRunning());
        button(&page.view, fetch<QString>("action"))->click();
        const bool brew = source == Source::brewFormula || source == Source::brewCask;
        QTRY_COMPARE(button(&page.view, fetch<QString>("action")) == nullptr, brew);
        page.view.appeared(); // coming back, even to an emptied list, checks nothing
        QTest::qWait(20);
        QCOMPARE(page.upgrades.load(), brew ? 1 : 0);
        const bool opens = source == Source::sparkle && !app.isEmpty();
        QCOMPARE(page.opened, opens ? QStringList{app} : QStringList{});
        QCOMPARE(page.listings.load(), 1);
        check->click();
        QVERIFY(page.updater.scanning());
    }
};

QTEST_MAIN(UiTest)
#include "tst_ui.moc"
