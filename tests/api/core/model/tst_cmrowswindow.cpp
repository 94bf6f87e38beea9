#include "core/model/cmrowswindow.h"

#include <QtTest>

#include <deque>

/// The ring behaves as the deque that it stands for.
class tst_CMRowsWindow : public QObject
{
    Q_OBJECT

private:
    static QString ids(const CMRowsWindow& window)
    {
        QStringList list;
        for (const CMRowsWindow::Item& item : window)
            list.append((item.roles.id().isEmpty() ? "-" : item.roles.id()) + (item.reloadFlag ? "!" : ""));
        return list.join(' ');
    }
    /// a b c d e, the ring's first slot somewhere in its middle.
    static CMRowsWindow window(int turned)
    {
        CMRowsWindow window(5);
        window.shift(turned);
        for (int i = 0; i < 5; ++i)
            window.at(i).roles.setId(QString(QChar('a' + i)));
        return window;
    }

private slots:
    void everyOperationWorksWhereverTheRingBegins_data()
    {
        QTest::addColumn<int>("turned");
        for (int turned = -4; turned < 5; ++turned)
            QTest::newRow(qPrintable(QString::number(turned))) << turned;
    }
    void everyOperationWorksWhereverTheRingBegins()
    {
        QFETCH(int, turned);
        const auto after = [&](const std::function<void(CMRowsWindow*)>& change) {
            CMRowsWindow changed = window(turned);
            change(&changed);
            return ids(changed);
        };
        QCOMPARE(after([](CMRowsWindow*) {}), QString("a b c d e"));
        QCOMPARE(after([](CMRowsWindow* w) { w->shift(2); }), QString("c d e - -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->shift(-2); }), QString("- - a b c"));
        QCOMPARE(after([](CMRowsWindow* w) { w->shift(0); }), QString("a b c d e"));
        QCOMPARE(after([](CMRowsWindow* w) { w->shift(5); }), QString("- - - - -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->shift(-99); }), QString("- - - - -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->insert(0, OrvoRoles().setId("x")); }), QString("x a b c d"));
        QCOMPARE(after([](CMRowsWindow* w) { w->insert(2, OrvoRoles().setId("x")); }), QString("a b x c d"));
        QCOMPARE(after([](CMRowsWindow* w) { w->insert(4, OrvoRoles().setId("x")); }), QString("a b c d x"));
        QCOMPARE(after([](CMRowsWindow* w) { w->erase(0); }), QString("b c d e -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->erase(2); }), QString("a b d e -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->erase(4); }), QString("a b c d -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->resize(3); }), QString("- - -"));
        QCOMPARE(after([](CMRowsWindow* w) { w->clear(); }), QString("- - - - -"));
    }

    void flagsTravelWithTheirSlotsAndEndWithThem()
    {
        CMRowsWindow changed = window(3);
        changed.at(1).reloadFlag = true;
        changed.shift(-1);
        QCOMPARE(ids(changed), QString("- a b! c d"));
        changed.insert(2, OrvoRoles());
        QCOMPARE(ids(changed), QString("- a - b! c"));
        changed.erase(3);
        QCOMPARE(ids(changed), QString("- a - c -"));
    }

    void onlyRolesThatAreNotStaleAreLoaded()
    {
        CMRowsWindow::Item item;
        QVERIFY(!item.isLoaded());
        item.reloadFlag = true;
        QVERIFY(!item.isLoaded());
        item.roles.setId("a");
        QVERIFY(!item.isLoaded());
        item.reloadFlag = false;
        QVERIFY(item.isLoaded());
    }
};

QTEST_GUILESS_MAIN(tst_CMRowsWindow)
#include "tst_cmrowswindow.moc"
