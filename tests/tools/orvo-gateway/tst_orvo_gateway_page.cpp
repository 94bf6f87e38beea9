#include "support/chromium.h"
#include "support/gatewayfixture.h"

/// The page of the gateway in a real browser, with a service in another process behind it.
class tst_orvo_gateway_page : public QObject
{
    Q_OBJECT

private:
    void open(const QString& path)
    {
        QVERIFY(m_f->startGateway({"--allow-writes", "--start", m_f->named(path)}));
        QVERIFY(m_browser->open(m_f->url()));
    }
    QString text(const QString& expression) const { return m_browser->evaluate(expression).toVariant().toString(); }
    /// The line of the row with that path or title.
    QString line(const QString& attribute, const QString& value) const
    {
        return QStringLiteral("document.querySelector('#rows li[data-%1=\"%2\"]')").arg(attribute, m_f->named(value));
    }
    QString titles() const
    {
        return text("[...document.querySelectorAll('#rows li:not([hidden])')]"
                    ".map(line => line.dataset.title).join(',')");
    }

    std::unique_ptr<GatewayFixture> m_f;
    std::unique_ptr<Chromium> m_browser;

private slots:
    void init()
    {
        m_f = std::make_unique<GatewayFixture>("page");
        QVERIFY(m_f->startService());
        m_browser = std::make_unique<Chromium>();
    }
    void cleanup()
    {
        m_browser.reset();
        m_f.reset();
    }

    void aListShowsItsRowsWithIconsAndValues()
    {
        open("@:tree");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Volume,Branch"), gatewayPatienceMs);
        QCOMPARE(text("document.getElementById('title').textContent"), QString("Tree"));
        QCOMPARE(text(line("path", "@:volume") + ".querySelector('input').value"), QString("20"));
        QVERIFY(!text(line("path", "@:volume") + ".querySelector('.icon').textContent").isEmpty());
        QCOMPARE(text(line("path", "@:tree/branch") + ".querySelector('a').getAttribute('href')"),
                 m_f->named("#@:tree/branch"));
    }

    void changesOfValuesArriveByThemselves()
    {
        open("@:tree");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Volume,Branch"), gatewayPatienceMs);
        // A mark that a page which is loaded anew would not have.
        m_browser->evaluate("window.mark = 1");
        for (const int volume : {41, 42, 43}) {
            QCOMPARE(m_f->setVolume(volume).status, 200);
            QTRY_COMPARE(text(line("path", "@:volume") + ".querySelector('input').value"), QString::number(volume));
        }
        QCOMPARE(m_browser->evaluate("window.mark").toInt(), 1);
    }

    void changesOfRowsArriveByThemselves()
    {
        open("@:numbers");
        QTRY_VERIFY_WITH_TIMEOUT(titles().startsWith("Number 0,Number 1,"), gatewayPatienceMs);
        QCOMPARE(m_f->get("/api/getRows?path=@:growing&fromRow=0&toRow=0&roles=title").status, 200);
        m_browser->evaluate("location.hash = '" + m_f->named("#@:growing") + "'");
        // Each reading makes a row, and so the next reading.
        QTRY_VERIFY_WITH_TIMEOUT(titles().split(',').size() > 5, gatewayPatienceMs);
    }

    void aValueIsChangedInPlace()
    {
        open("@:tree");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Volume,Branch"), gatewayPatienceMs);
        m_browser->evaluate("{ const field = " + line("path", "@:volume")
                            + ".querySelector('input'); field.value = 55; field.dispatchEvent(new Event('change')); }");
        QTRY_COMPARE(m_f->volume(), 55);
    }

    void theBrowserGoesIntoListsAndBack()
    {
        open("@:tree");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Volume,Branch"), gatewayPatienceMs);
        m_browser->evaluate(line("title", "Branch") + ".querySelector('a').click()");
        QTRY_COMPARE(titles(), QString("Name,Tree"));
        QCOMPARE(text(line("path", "@:name") + ".querySelector('input').value"), QString("Kitchen"));
        m_browser->evaluate("document.getElementById('back').click()");
        QTRY_COMPARE(titles(), QString("Volume,Branch"));
    }

    void searchingShowsTheRowsThatMatch()
    {
        open("@:tree");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Volume,Branch"), gatewayPatienceMs);
        m_browser->evaluate("{ const field = document.getElementById('search'); field.value = 'vOL';"
                            " field.dispatchEvent(new Event('input')); }");
        QTRY_COMPARE(titles(), QString("Volume"));
    }

    void aServiceThatRestartsIsShownAgain()
    {
        open("@:tree");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Volume,Branch"), gatewayPatienceMs);
        m_f->setVolume(41);
        QTRY_COMPARE(text(line("path", "@:volume") + ".querySelector('input').value"), QString("41"));
        m_f->killService();
        QVERIFY(m_f->startService());
        QTRY_COMPARE_WITH_TIMEOUT(text(line("path", "@:volume") + ".querySelector('input').value"), QString("20"),
                                  gatewayPatienceMs);
    }

    void whatTheServiceSaysIsShownAsText()
    {
        open("@:tree/branch");
        QTRY_COMPARE_WITH_TIMEOUT(titles(), QString("Name,Tree"), gatewayPatienceMs);
        m_f->post("/api/setData", "{'path':'@:name','role':'value','value':{'type':'string_',"
                                  "'string_':'<img src=x onerror=window.broken=1>'}}");
        QTRY_COMPARE(text(line("path", "@:name") + ".querySelector('input').value"),
                     QString("<img src=x onerror=window.broken=1>"));
        QVERIFY(m_browser->evaluate("window.broken").isUndefined());
        QCOMPARE(m_browser->evaluate("document.querySelectorAll('img').length").toInt(-1), 0);
    }
};

QTEST_GUILESS_MAIN(tst_orvo_gateway_page)

#include "tst_orvo_gateway_page.moc"
