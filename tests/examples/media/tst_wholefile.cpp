#include "wholefile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Large enough that a writing takes a while.
QByteArray document(char fill)
{
    return QByteArray(1 << 20, fill) + '\n';
}

/// Writes one document after the other, until it is killed.
int writeForEver(const QString& file)
{
    for (char fill = 'a';; fill = fill == 'z' ? 'a' : char(fill + 1))
        if (const QString problem = WholeFile::write(file, document(fill)); !problem.isEmpty()) {
            qWarning() << problem;
            return 1;
        }
}

QByteArray contents(const QString& file)
{
    QFile in(file);
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
}

} // namespace

class tst_WholeFile : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QVERIFY(m_dir->isValid());
        m_file = m_dir->filePath("document");
    }
    void cleanup() { m_dir.reset(); }

    void aFileIsMadeAndReplaced()
    {
        QCOMPARE(WholeFile::write(m_file, "long at first"), QString());
        QCOMPARE(contents(m_file), QByteArray("long at first"));
        QCOMPARE(WholeFile::write(m_file, "short"), QString());
        QCOMPARE(contents(m_file), QByteArray("short"));
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files), QStringList("document"));
    }

    void thePermissionsStay()
    {
        QCOMPARE(WholeFile::write(m_file, "1"), QString());
        QCOMPARE(::chmod(QFile::encodeName(m_file), 0640), 0);
        QCOMPARE(WholeFile::write(m_file, "2"), QString());
        struct stat state = {};
        QCOMPARE(::stat(QFile::encodeName(m_file), &state), 0);
        QCOMPARE(state.st_mode & 07777, mode_t(0640));
    }

    void whatAnInterruptedWritingLeftIsNoHindrance()
    {
        QFile rest(m_file + ".new");
        QVERIFY(rest.open(QIODevice::WriteOnly) && rest.write("half of a longer text") > 0);
        rest.close();
        QCOMPARE(WholeFile::write(m_file, "whole"), QString());
        QCOMPARE(contents(m_file), QByteArray("whole"));
        QVERIFY(!rest.exists());
    }

    void aFailureTellsTheFileAndLeavesTheOldOne()
    {
        const QString missing = m_dir->filePath("missing/document");
        QCOMPARE(WholeFile::write(missing, "x"),
                 QString("cannot write %1.new: No such file or directory").arg(missing));

        QCOMPARE(WholeFile::write(m_file, "old"), QString());
        QVERIFY(QDir().mkdir(m_file + ".new"));
        QVERIFY(WholeFile::write(m_file, "new").startsWith("cannot write "));
        QCOMPARE(contents(m_file), QByteArray("old"));

        QVERIFY(QDir().mkdir(m_dir->filePath("folder")));
        QVERIFY(WholeFile::write(m_dir->filePath("folder"), "new").startsWith("cannot replace "));
    }

    void aWriterKilledAtAnyMomentLeavesOneWholeDocument()
    {
        QCOMPARE(WholeFile::write(m_file, document('A')), QString());
        QSet<char> seen;
        int interrupted = 0;
        for (int i = 0; i < 100; ++i) {
            QProcess writer;
            writer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            writer.start(QCoreApplication::applicationFilePath(), {"--write", m_file});
            QVERIFY(writer.waitForStarted());
            QTRY_VERIFY(QFile::exists(m_file + ".new") || !contents(m_file).startsWith('A'));
            ::usleep(QRandomGenerator::global()->bounded(20000));
            QCOMPARE(writer.state(), QProcess::Running);
            writer.kill();
            QVERIFY(writer.waitForFinished());
            QCOMPARE(writer.exitStatus(), QProcess::CrashExit);
            const QByteArray found = contents(m_file);
            QVERIFY2(!found.isEmpty() && found == document(found.at(0)), qPrintable(QString::number(found.size())));
            seen.insert(found.at(0));
            interrupted += int(QFile::exists(m_file + ".new"));
        }
        // The kills did come amid writings, and behind several of them.
        QVERIFY2(interrupted > 0, qPrintable(QString::number(interrupted)));
        QVERIFY2(seen.size() > 1, qPrintable(QString::number(seen.size())));
    }

private:
    QScopedPointer<QTemporaryDir> m_dir;
    QString m_file;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == QLatin1String("--write"))
        return writeForEver(arguments.value(2));
    tst_WholeFile test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_wholefile.moc"
