#include "core/model/cmbrowser.h"

#include "childprocess.h"
#include "core/model/cmsubscribe.h"
#include "logcapture.h"
#include "support/scriptedrows.h"

#include <QPointer>

#include <functional>

/// What a stack tells, in order, in the words of its signals' names.
class StackEar : public QObject
{
public:
    explicit StackEar(CMBrowser* stack)
    {
        const auto say = [this](const QString& text) { said.append(text); };
        connect(stack, &CMBrowser::topRowsChanged, this,
                [=](CMRowsBrowser* rows) { say("top " + (rows ? rows->path().toEncoded() : QString("null"))); });
        connect(stack, &CMBrowser::rowsStackChanged, this, [=] { say("stack"); });
        connect(stack, &CMBrowser::anyCurrentItemChanged, this, [=](CMRowsBrowser* rows, const OrvoRoles& item) {
            say("any " + rows->path().toEncoded() + ' ' + item.id());
        });
        connect(stack, &CMBrowser::topRowsPathChanged, this,
                [=](const CMPath& path) { say("path " + path.toEncoded()); });
        connect(stack, &CMBrowser::topRowsLoadingChanged, this, [=](bool on) { say(on ? "loading" : "loaded"); });
        connect(stack, &CMBrowser::topRowsSizeChanged, this, [=](int size) { say(QString("size %1").arg(size)); });
        connect(stack, &CMBrowser::topRowsCurrentRowChanged, this, [=](int row) { say(QString("row %1").arg(row)); });
        connect(stack, &CMBrowser::topRowsCurrentItemChanged, this,
                [=](const OrvoRoles& item) { say("current " + item.id()); });
        connect(stack, &CMBrowser::topRowsRowsRolesChanged, this, [=] { say("rowsRoles"); });
        connect(stack, &CMBrowser::topRowsItemsChanged, this, [=] { say("items"); });
        connect(stack, &CMBrowser::topRowsErrorChanged, this,
                [=](const CMError& error) { say("error " + error.name()); });
        connect(stack, &CMBrowser::topRowsUpdated, this, [this] { ++updates; });
    }
    QStringList take()
    {
        QStringList taken;
        taken.swap(said);
        updates = 0;
        return taken;
    }
    QStringList said;
    int updates = 0;
};

/// Ends a stack when a signal comes.
class Ender : public QObject
{
    Q_OBJECT
public:
    explicit Ender(CMBrowser* browser) : m_browser(browser) {}
public slots:
    void end() { delete m_browser.data(); }

private:
    const QPointer<CMBrowser> m_browser;
};

class tst_CMBrowser : public QObject
{
    Q_OBJECT

private:
    /// A stack whose lists have ten rows, and whatever rows roles the test gives a path.
    struct Stack
    {
        Stack() : alive(new CMBrowser(&worker)), browser(*alive)
        {
            browser.setRoles(CMAllRoles());
            browser.setRadius(1);
            browser.setActive(true);
        }
        ~Stack()
        {
            delete alive;
            worker.clear();
        }
        void open(const QStringList& paths)
        {
            for (const QString& path : paths) {
                browser.open(CMPath::fromEncoded(path));
                load();
            }
        }
        /// Loads all screens.
        void load()
        {
            const QList<CMRowsBrowser*> all = browser.rows();
            for (CMRowsBrowser* rows : all) {
                rows->findChild<QTimer*>()->stop();
                QMetaObject::invokeMethod(rows, "triggerTimeout");
            }
            QList<CMRequest> open;
            open.swap(worker.requests);
            for (const CMRequest& request : qAsConst(open)) {
                const CMGetRowsRequest getRows = request_cast<CMGetRowsRequest>(request);
                QVariantList rows;
                for (int row = getRows.fromRow(); row <= getRows.toRow(); ++row)
                    rows.append(QVariant(rowValues(getRows.path().toEncoded().mid(2) + QString::number(row))));
                OrvoRowsRoles answer = rowsRoles.value(getRows.path().toEncoded());
                getRows.reply().setValue(answer.setRows(rows).setRowsCount(10).setRowsVersion(1));
            }
            QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
        }
        /// The paths, the bottom first.
        QString paths() const
        {
            QStringList list;
            const QList<CMRowsBrowser*> all = browser.rows();
            for (const CMRowsBrowser* rows : all)
                list.append(rows->path().isEmpty() ? "-" : rows->path().toEncoded());
            return list.join(' ');
        }
        CMRowsBrowser* at(int index) const { return browser.rows().at(index); }

        ScriptedWorker worker;
        QHash<QString, OrvoRowsRoles> rowsRoles;
        const QPointer<CMBrowser> alive;
        CMBrowser& browser;
    };
    static CMPath path(const QString& text) { return CMPath::fromEncoded(text); }
    static OrvoRowsRoles back(const QString& to, const QString& barrier = QString())
    {
        return OrvoRowsRoles().setRowsBackPath(path(to)).setRowsBackPathBarrier(path(barrier));
    }

private slots:
    void initTestCase() { orvoRegisterMetaTypes(); }
    void cleanup() { deleteWaiting(); }

    void anEmptyStackHasNoTop()
    {
        Stack stack;
        QCOMPARE(stack.browser.topRows(), nullptr);
        QVERIFY(stack.browser.rows().isEmpty());
        QCOMPARE(stack.browser.findRows(path("p:a")), -1);
        QCOMPARE(stack.browser.findRows(CMPath()), -1);
        QVERIFY(!stack.browser.close(path("p:a")));
        QVERIFY(!stack.browser.closeAt(0));
        StackEar ear(&stack.browser);
        stack.browser.updateTopRows();
        stack.browser.closeAll(0, -1);
        QCOMPARE(ear.said, QStringList());
    }

    void aNewTopTellsItsStateAtOnce()
    {
        Stack stack;
        StackEar ear(&stack.browser);
        stack.browser.open(path("p:a"));
        QCOMPARE(ear.take(), (QStringList{"top p:a", "path p:a", "loading", "size 0", "row 0", "current ", "rowsRoles",
                                          "items", "error ", "stack"}));
        stack.load();
        QCOMPARE(ear.take(), (QStringList{"size 10", "rowsRoles", "loaded", "any p:a a0", "current a0", "items"}));
    }

    void anUncoveredTopTellsItsStateToo()
    {
        Stack stack;
        stack.open({"p:a", "p:b"});
        stack.at(0)->setCurrentRow(1);
        StackEar ear(&stack.browser);
        QVERIFY(stack.browser.closeTop());
        QCOMPARE(ear.said, (QStringList{"top p:a", "path p:a", "loaded", "size 10", "row 1", "current a1", "rowsRoles",
                                        "items", "error ", "stack"}));
    }

    void onlyTheTopIsForwarded()
    {
        Stack stack;
        stack.open({"p:a", "p:b"});
        StackEar ear(&stack.browser);
        stack.at(0)->setCurrentRow(1);
        QCOMPARE(ear.take(), QStringList("any p:a a1"));
        stack.at(1)->setCurrentRow(1);
        QCOMPARE(ear.updates, 2);
        QStringList said = ear.take();
        said.sort();
        QCOMPARE(said, (QStringList{"any p:b b1", "current b1", "row 1"}));
        stack.at(1)->handleError(CMError("broken", "", ""));
        QCOMPARE(ear.take(), QStringList("error broken"));
    }

    void theSettingsReachAllBrowsers()
    {
        Stack stack;
        stack.open({"p:a", "p:b"});
        QStringList roles = CMAllRoles();
        std::swap(roles[1], roles[18]);
        stack.browser.setRoles(roles);
        QCOMPARE(stack.at(0)->item(0).id(), QString());
        stack.load();
        QCOMPARE(stack.at(0)->item(0).title(), QString("a0"));
        QCOMPARE(stack.at(1)->item(0).title(), QString("b0"));
        stack.browser.setActive(false);
        for (CMRowsBrowser* rows : stack.browser.rows()) {
            rows->reset();
            QVERIFY(!rows->findChild<QTimer*>()->isActive());
        }
        stack.browser.setActive(true);
        for (CMRowsBrowser* rows : stack.browser.rows())
            QVERIFY(rows->findChild<QTimer*>()->isActive());
    }

    void theRadiusIsThatOfNewBrowsers()
    {
        Stack stack;
        stack.open({"p:a"});
        QCOMPARE(stack.at(0)->item(1).id(), QString("a1"));
        QCOMPARE(stack.at(0)->item(2).id(), QString());
        // Beyond the end reads as the accept roles: the browser was told to expand them.
        stack.rowsRoles["p:b"].setRoles(OrvoRoles().setAccept(OrvoRoles().setTitle("take it")));
        stack.open({"p:b"});
        QCOMPARE(stack.at(1)->item(10).title(), QString("take it"));
    }

    void aRadiusForAStackThatHoldsBrowsersStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--late-radius"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("m_radius == 0"), end.errors.constData());
    }

    void openingTheTopOnlyStartsItsCloseTimeAnew()
    {
        Stack stack;
        stack.rowsRoles["p:a"].setCloseTimeout(100000);
        stack.open({"p:a"});
        QTimer* closeTimer = stack.at(0)->findChildren<QTimer*>().at(1);
        closeTimer->setTimerType(Qt::PreciseTimer);
        closeTimer->start();
        QTRY_VERIFY(closeTimer->remainingTime() < 99900);
        StackEar ear(&stack.browser);
        stack.browser.open(path("p:a"));
        QVERIFY(closeTimer->remainingTime() > 99900);
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(stack.paths(), QString("p:a"));
    }

    void openingAListOfTheStackReturnsToIt()
    {
        Stack stack;
        stack.open({"p:a", "p:b", "p:c", "p:d"});
        const QPointer<CMRowsBrowser> closed = stack.at(2);
        StackEar ear(&stack.browser);
        stack.browser.open(path("p:b"));
        QCOMPARE(stack.paths(), QString("p:a p:b"));
        QCOMPARE(ear.said.count("stack"), 1);
        QCOMPARE(ear.said.first(), QString("top p:b"));
        QVERIFY(closed);
        deleteWaiting();
        QVERIFY(!closed);
    }

    void anEmptyPathIsAlwaysANewScreen()
    {
        Stack stack;
        stack.browser.open(CMPath());
        stack.browser.open(CMPath());
        QCOMPARE(stack.paths(), QString("- -"));
        QVERIFY(stack.worker.requests.isEmpty());
    }

    void aPathOfAReplyIsFollowedWhenItComes()
    {
        Stack stack;
        stack.open({"p:a"});
        const CMReply<QVariant> reply;
        stack.browser.open(CMVariantReply(reply));
        QCOMPARE(stack.paths(), QString("p:a -"));
        reply.setValue(QVariant("p:b"));
        QTRY_COMPARE(stack.paths(), QString("p:a p:b"));
    }

    void aScreenWhosePathFailsGoes()
    {
        Stack stack;
        stack.open({"p:a"});
        const CMReply<QVariant> reply;
        stack.browser.open(CMVariantReply(reply));
        stack.open({"p:c"});
        reply.setError(CMError("nowhere", "", ""));
        QTRY_COMPARE(stack.paths(), QString("p:a p:c"));
    }

    void twoScreensMayWaitForTheirPaths()
    {
        Stack stack;
        const CMReply<QVariant> first;
        const CMReply<QVariant> second;
        stack.browser.open(CMVariantReply(first));
        stack.browser.open(CMVariantReply(second));
        second.setValue(QVariant("p:b"));
        first.setValue(QVariant("p:a"));
        QTRY_COMPARE(stack.paths(), QString("p:a p:b"));
    }

    void aScreenInheritsTheEnumPath()
    {
        Stack stack;
        stack.open({"p:a"});
        stack.at(0)->setEnumPath(path("p:enum"));
        stack.open({"p:b"});
        QCOMPARE(stack.at(1)->enumPath(), path("p:enum"));
        stack.browser.setEnumValue(OrvoValue().setI32_(3));
        QCOMPARE(stack.browser.enumValue().i32_(), 3);
    }

    void closes_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<bool>("done");
        QTest::addColumn<QString>("left");
        QTest::newRow("the bottom") << 0 << true << "p:b p:c";
        QTest::newRow("the middle") << 1 << true << "p:a p:c";
        QTest::newRow("the top") << 2 << true << "p:a p:b";
        QTest::newRow("above the top") << 3 << false << "p:a p:b p:c";
        QTest::newRow("negative") << -1 << false << "p:a p:b p:c";
    }
    void closes()
    {
        QFETCH(int, index);
        QFETCH(bool, done);
        QFETCH(QString, left);
        Stack stack;
        stack.open({"p:a", "p:b", "p:c"});
        StackEar ear(&stack.browser);
        QCOMPARE(stack.browser.closeAt(index), done);
        QCOMPARE(stack.paths(), left);
        QCOMPARE(ear.said.count("stack"), done ? 1 : 0);
        QCOMPARE(ear.said.count("top p:b"), index == 2 ? 1 : 0);
    }

    void closesByPathAndByBrowser()
    {
        Stack stack;
        stack.open({"p:a", "p:b", "p:c"});
        QCOMPARE(stack.browser.findRows(path("p:b")), 1);
        QCOMPARE(stack.browser.findRows(stack.at(2)), 2);
        QVERIFY(stack.browser.close(path("p:b")));
        QVERIFY(!stack.browser.close(path("p:b")));
        CMRowsBrowser* bottom = stack.at(0);
        QVERIFY(stack.browser.close(bottom));
        QVERIFY(!stack.browser.close(bottom));
        QCOMPARE(stack.paths(), QString("p:c"));
    }

    void closesARange()
    {
        Stack stack;
        LogCapture log("CMBrowser", log4cplus::DEBUG_LOG_LEVEL);
        stack.open({"p:a", "p:b", "p:c", "p:d"});
        StackEar ear(&stack.browser);
        stack.browser.closeAll(2, 2);
        QCOMPARE(ear.take(), QStringList());
        stack.browser.closeAll(1, 3);
        QCOMPARE(ear.take(), QStringList("stack"));
        QCOMPARE(stack.paths(), QString("p:a p:d"));
        QVERIFY(log.lines().contains("DEBUG begin:1 end:3 size:4"));
        stack.browser.closeAll(0, -1);
        QCOMPARE(ear.take(), (QStringList{"top null", "stack"}));
        QCOMPARE(stack.browser.topRows(), nullptr);
    }

    void aRangeOutsideTheStackStopsTheProcess()
    {
        const ChildEnd end = runThisProgram({"--bad-range"});
        QVERIFY(end.stopped);
        QVERIFY2(end.errors.contains("0 <= begin && begin <= end && end <= size"), end.errors.constData());
    }

    void backFromNothingIsRefused()
    {
        LogCapture log("CMBrowser", log4cplus::WARN_LOG_LEVEL);
        Stack stack;
        QVERIFY(!stack.browser.closeTop());
        QCOMPARE(log.lines(), QStringList("WARN Screen stack is empty!"));
    }

    void backFromTheOnlyScreenClosesIt()
    {
        Stack stack;
        stack.open({"p:a"});
        StackEar ear(&stack.browser);
        QVERIFY(stack.browser.closeTop());
        QCOMPARE(ear.said, (QStringList{"top null", "stack"}));
    }

    void backPaths_data()
    {
        QTest::addColumn<QString>("back");
        QTest::addColumn<QString>("barrier");
        QTest::addColumn<QString>("left");
        // The stack is p:a p:m/b p:m/c p:x/d.
        QTest::newRow("to a list on the stack below the barrier") << "p:a"
                                                                  << "p:m"
                                                                  << "p:a";
        QTest::newRow("to a new list above the barrier") << "p:new"
                                                         << "p:m"
                                                         << "p:a p:m/b p:m/c p:new";
        QTest::newRow("the barrier is the bottom") << "p:new"
                                                   << "p:a"
                                                   << "p:a p:new";
        QTest::newRow("nothing begins with the barrier") << "p:new"
                                                         << "p:nothing"
                                                         << "p:a p:new";
        QTest::newRow("nothing begins with the barrier, to the bottom") << "p:a"
                                                                        << "p:nothing"
                                                                        << "p:a";
        QTest::newRow("the top is the barrier") << "p:new"
                                                << "p:x"
                                                << "p:a p:m/b p:m/c p:x/d p:new";
    }
    void backPaths()
    {
        QFETCH(QString, back);
        QFETCH(QString, barrier);
        QFETCH(QString, left);
        Stack stack;
        stack.rowsRoles["p:x/d"] = this->back(back, barrier);
        stack.open({"p:a", "p:m/b", "p:m/c", "p:x/d"});
        LogCapture log("CMBrowser", log4cplus::DEBUG_LOG_LEVEL);
        QVERIFY(stack.browser.closeTop());
        QCOMPARE(stack.paths(), left);
        QCOMPARE(log.lines().first(), QString("DEBUG BackPath: %1 / %2").arg(back, barrier));
    }

    void aBackPathOfTheOnlyScreenOpensAboveIt()
    {
        Stack stack;
        stack.rowsRoles["p:a"] = back("p:b", "p:nothing");
        stack.open({"p:a"});
        QVERIFY(stack.browser.closeTop());
        QCOMPARE(stack.paths(), QString("p:a p:b"));
    }

    void aBackPathToTheOnlyScreenItselfLeavesIt()
    {
        Stack stack;
        stack.rowsRoles["p:a"] = back("p:a", "p:nothing");
        stack.open({"p:a"});
        StackEar ear(&stack.browser);
        QVERIFY(stack.browser.closeTop());
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(stack.paths(), QString("p:a"));
    }

    void aListThatClosesItselfLeavesTheStackWhereverItStands()
    {
        Stack stack;
        stack.rowsRoles["p:b"].setCloseTimeout(30);
        stack.open({"p:a", "p:b", "p:c"});
        QTRY_COMPARE(stack.paths(), QString("p:a p:c"));
        stack.worker.subscribe()->rowsChanged(path("p:c"), CMSubscribe::RowsChangeClose());
        QTRY_COMPARE(stack.paths(), QString("p:a"));
        QCOMPARE(stack.browser.topRows(), stack.at(0));
    }

    void aRedirectToAListBelowClosesWhatLiesBetween()
    {
        Stack stack;
        stack.open({"p:a", "p:b", "p:c"});
        stack.rowsRoles["p:d"].setRowsRedirect(path("p:b"));
        CMRowsBrowser* redirected = nullptr;
        stack.browser.open(path("p:d"));
        redirected = stack.browser.topRows();
        stack.load();
        QCOMPARE(stack.paths(), QString("p:a p:b"));
        QCOMPARE(stack.browser.topRows(), redirected);
    }

    void aPathThatComesLateClosesTheListItDuplicates()
    {
        Stack stack;
        const CMReply<QVariant> reply;
        stack.browser.open(CMVariantReply(reply));
        stack.open({"p:b", "p:a"});
        reply.setValue(QVariant("p:a"));
        QTRY_COMPARE(stack.paths(), QString("p:a"));
        deleteWaiting();
        QCOMPARE(stack.browser.rows().size(), 1);
    }

    void aClosedScreenIsNotHeardAnyMore()
    {
        Stack stack;
        stack.open({"p:a", "p:b"});
        CMRowsBrowser* closed = stack.at(1);
        stack.browser.closeTop();
        StackEar ear(&stack.browser);
        closed->setCurrentRow(1);
        emit closed->closed();
        closed->setPath(path("p:a"));
        QCOMPARE(ear.said, QStringList());
        QCOMPARE(stack.paths(), QString("p:a"));
    }

    void aNonContextAboveAContextIsReported()
    {
        const auto context = OrvoRoles().setContainerType(OrvoRolesContainerType::Context_);
        Stack stack;
        stack.rowsRoles["p:menu"].setRoles(context);
        stack.rowsRoles["p:menu2"].setRoles(context);
        stack.open({"p:menu"});
        LogCapture log("CMBrowser", log4cplus::ERROR_LOG_LEVEL);
        stack.open({"p:menu2"});
        QCOMPARE(log.lines(), QStringList());
        stack.open({"p:list"});
        QCOMPARE(log.lines(), QStringList("ERROR ### Don't open non context from context ###"));
        QCOMPARE(stack.paths(), QString("p:menu p:menu2 p:list"));
    }

    void itMayBeDestroyedInsideAnyOfItsSignals_data()
    {
        QTest::addColumn<QByteArray>("signal");
        const QMetaObject& meta = CMBrowser::staticMetaObject;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            if (method.methodType() == QMetaMethod::Signal && !(method.attributes() & QMetaMethod::Cloned))
                QTest::newRow(method.methodSignature()) << method.methodSignature();
        }
    }
    void itMayBeDestroyedInsideAnyOfItsSignals()
    {
        QFETCH(QByteArray, signal);
        const CMReply<QVariant> reply;
        const std::function<void(Stack*)> causes[] = {
            [](Stack* stack) { stack->browser.open(path("p:new")); },
            [](Stack* stack) { stack->browser.open(path("p:a")); },
            [&](Stack* stack) { stack->browser.open(CMVariantReply(reply)); },
            [](Stack* stack) { stack->browser.closeTop(); },
            [](Stack* stack) { stack->browser.closeAt(0); },
            [](Stack* stack) { stack->browser.closeAll(0, -1); },
            [](Stack* stack) { stack->browser.setRoles(QStringList("x")); },
            [](Stack* stack) { stack->at(2)->setCurrentRow(1); },
            [](Stack* stack) { stack->at(2)->reset(); },
            [](Stack* stack) { stack->at(2)->setPath(path("p:a")); },
            [](Stack* stack) { stack->at(2)->handleError(CMError("broken", "", "")); },
        };
        int destroyed = 0;
        for (const auto& cause : causes) {
            Stack stack;
            stack.rowsRoles["p:c"] = back("p:z", "p:nothing");
            stack.open({"p:a", "p:b", "p:c"});
            stack.at(1)->setRoles(QStringList("x"));
            Ender ender(stack.alive);
            QVERIFY(connect(&stack.browser, '2' + signal, &ender, SLOT(end())));
            cause(&stack);
            destroyed += !stack.alive;
            deleteWaiting();
        }
        reply.cancel();
        QVERIFY(destroyed > 0);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.contains("--late-radius") || arguments.contains("--bad-range")) {
        leaveNoCore();
        orvoRegisterMetaTypes();
        ScriptedWorker worker;
        CMBrowser browser(&worker);
        browser.setRadius(1);
        browser.open(CMPath::fromEncoded("p:a"));
        if (arguments.contains("--late-radius"))
            browser.setRadius(2);
        else
            browser.closeAll(0, 2);
        return 0;
    }
    tst_CMBrowser test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cmbrowser.moc"
