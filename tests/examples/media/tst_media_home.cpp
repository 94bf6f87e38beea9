#include "mediatest.h"

#include <QDateTime>

#include <fcntl.h>
#include <sys/stat.h>

class tst_MediaHome : public MediaTest
{
    Q_OBJECT

private slots:
    void homeLeadsToLibraryRecentFilesSearchAndSettings()
    {
        start();
        const QList<OrvoRoles> home = rows(m_service->path("home"));
        QStringList found;
        for (const OrvoRoles& row : home)
            found.append(row.title() + ' ' + OrvoRolesType::toString(row.type()) + ' ' + row.path().base());
        QCOMPARE(found, QStringList({"Library container library", "Recent files container home/recent",
                                     "Search query search", "Settings container settings"}));
    }

    void theRecentFilesAreTheNewestFirst()
    {
        makeAged("a.wav", 30);
        makeAged("b.wav", 10);
        makeAged("c.wav", 20);
        watchRecent(3);
        QCOMPARE(recent(), QStringList({"b.wav", "c.wav", "a.wav"}));
        QCOMPARE(data(m_service->path("home/recent"), {OrvoRoles::Title(), OrvoRoles::Icon()}),
                 QVariantList({"Recent files", "document-open-recent"}));
    }

    void onlySoManyFilesAreShownAndTheNextOneMovesUp()
    {
        for (int i = 0; i < 12; ++i)
            makeAged(QString("%1.wav").arg(QChar('a' + i)), 100 + i);
        watchRecent(12);
        QCOMPARE(recent(), QStringList({"a.wav", "b.wav", "c.wav", "d.wav", "e.wav", "f.wav", "g.wav", "h.wav", "i.wav",
                                        "j.wav"}));
        setNumber("config/recent/size", 3);
        QCOMPARE(recent(), QStringList({"a.wav", "b.wav", "c.wav"}));
        QCOMPARE(settledChanges(), QStringList({"-9", "-8", "-7", "-6", "-5", "-4", "-3"}));
        m_changes.clear();
        QVERIFY(QFile::remove(file("b.wav")));
        QTRY_COMPARE(recent(), QStringList({"a.wav", "c.wav", "d.wav"}));
        QCOMPARE(settledChanges(), QStringList({"-1", "+2"}));
        setNumber("config/recent/size", 4);
        QCOMPARE(recent(), QStringList({"a.wav", "c.wav", "d.wav", "e.wav"}));
    }

    void theLinkTellsOfAFileThatComesToTheFront()
    {
        makeAged("a.wav", 20);
        makeAged("b.wav", 30);
        makeAged("old.wav", 100);
        watchRecent(3);
        setNumber("config/recent/size", 2);
        QTRY_COMPARE(settledChanges(), QStringList("-2"));
        m_changes.clear();
        // An old one that changes takes the place of the last one.
        setAge("old.wav", 10);
        QTRY_COMPARE(recent(), QStringList({"old.wav", "a.wav"}));
        QCOMPARE(settledChanges(), QStringList({"-1", "+0"}));
        m_changes.clear();
        setAge("a.wav", 5);
        QTRY_COMPARE(recent(), QStringList({"a.wav", "old.wav"}));
        QVERIFY(!settledChanges().isEmpty());
        m_changes.clear();
        // One that is older than all shown ones changes nothing.
        setAge("b.wav", 40);
        QCOMPARE(rescan(), 3);
        QCOMPARE(recent(), QStringList({"a.wav", "old.wav"}));
        QCOMPARE(settledChanges(), QStringList());
        // A shown one that becomes older makes room.
        setAge("old.wav", 300);
        QTRY_COMPARE(recent(), QStringList({"a.wav", "b.wav"}));
    }

    void hiddenFilesAreRecentOnesWhenTheyAreShown()
    {
        makeAged("a.wav", 20);
        makeAged(".b.wav", 10);
        watchRecent(2);
        QCOMPARE(recent(), QStringList("a.wav"));
        setNumber("settings/showHidden", 1);
        QCOMPARE(recent(), QStringList({".b.wav", "a.wav"}));
        setNumber("settings/showHidden", 0);
        QCOMPARE(recent(), QStringList("a.wav"));
    }

    void whoWatchesTheLinkHearsOfAServiceThatComesBack()
    {
        makeAged("a.wav", 20);
        watchRecent(1);
        m_service->process().kill();
        QVERIFY(m_service->process().waitForFinished());
        m_service->start();
        QTRY_VERIFY(m_changes.contains(QString()));
        QCOMPARE(rescan(), 1);
        m_changes.clear();
        makeAged("b.wav", 10);
        QTRY_COMPARE(recent(), QStringList({"b.wav", "a.wav"}));
        QVERIFY(settledChanges().contains("+0"));
    }

private:
    void setAge(const QString& name, int seconds)
    {
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        const timespec times[] = {{time_t(now - seconds), 0}, {time_t(now - seconds), 0}};
        QCOMPARE(::utimensat(AT_FDCWD, QFile::encodeName(file(name)), times, 0), 0);
    }
    void makeAged(const QString& name, int seconds)
    {
        QVERIFY(write(file(name), wave(100)));
        setAge(name, seconds);
    }

    void watchRecent(int count)
    {
        start();
        QCOMPARE(rescan(), count);
        m_worker->connectRowsChange(m_service->path("home/recent"), this,
                                    SLOT(on_rowsChanged(CMPath, QStringList, int, int)));
        recent();
    }

    QStringList recent()
    {
        QStringList ids;
        for (const OrvoRoles& row : rows(m_service->path("home/recent")))
            ids.append(row.id());
        return ids;
    }
};

QTEST_GUILESS_MAIN(tst_MediaHome)
#include "tst_media_home.moc"
