#include "core/model/cmroles.h"

#include "records/orvoroles.h"

#include <QtTest>

class tst_CMRoles : public QObject
{
    Q_OBJECT

private slots:
    void aFullReadAsksForTheseRolesInThisOrder()
    {
        const QString expected = "path title description longDescription type containerType albumType audioType "
                                 "imageType videoType modifiable disabled icon flags value mediaData edit valueUnit id "
                                 "search activity cancel accept context risky preferred rating fillParent timestamp "
                                 "autoCompletePath busyText renderAsButton doNotTrack persistentMetaData "
                                 "containerPlayable releaseDate personType epgType defaultValue sortKey unknownSize";
        QCOMPARE(CMAllRoles(), expected.split(' '));
    }

    void theListIsMadeOnce() { QVERIFY(CMAllRoles().isSharedWith(CMAllRoles())); }

    void flagsHaveTheseKeys()
    {
        QCOMPARE(CMFlags::File(), QString("file"));
        QCOMPARE(CMFlags::RadioButton(), QString("radioButton"));
    }
};

QTEST_GUILESS_MAIN(tst_CMRoles)
#include "tst_cmroles.moc"
