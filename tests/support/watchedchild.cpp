// A child for the tests of supervision: does what its arguments say, one after the other, and then serves events until
// it is ended.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusContext>
#include <QFile>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

QString s_countFile;
QString s_mode = QStringLiteral("answer");

void append(const QString& fileName, const QByteArray& bytes)
{
    QFile file(fileName);
    if (!file.open(QIODevice::Append))
        _exit(99);
    file.write(bytes);
}

} // namespace

class Ping : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.orvo.ping")

public slots:
    void ping()
    {
        if (!s_countFile.isEmpty())
            append(s_countFile, ".");
        if (s_mode == "error")
            sendErrorReply(QDBusError::Failed, "not well");
        else if (s_mode == "hang")
            raise(SIGSTOP);
    }
};

class Alive : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.example.alive")

public slots:
    void areYou() { append(s_countFile, "!"); }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    for (const QString& step : application.arguments().mid(1)) {
        const QString what = step.section(':', 0, 0);
        const QString with = step.section(':', 1);
        const int number = with.toInt();
        if (what == "file") {
            append(with, QByteArray());
        } else if (what == "pid") {
            append(with, QByteArray::number(getpid()) + '\n');
        } else if (what == "exit") {
            _exit(number);
        } else if (what == "raise") {
            raise(number);
        } else if (what == "ignore") {
            signal(number, SIG_IGN);
        } else if (what == "endOn") {
            signal(number, [](int) { _exit(7); });
        } else if (what == "block") {
            sigset_t set;
            sigemptyset(&set);
            sigaddset(&set, number);
            sigprocmask(SIG_BLOCK, &set, nullptr);
        } else if (what == "await") {
            sigset_t set;
            sigemptyset(&set);
            sigaddset(&set, number);
            int got = 0;
            sigwait(&set, &got);
        } else if (what == "fork") {
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(60);
                for (;;)
                    pause();
            }
            append(with, QByteArray::number(pid) + '\n');
        } else if (what == "count") {
            s_countFile = with;
        } else if (what == "mode") {
            s_mode = with;
        } else if (what == "ping") {
            QDBusConnection::systemBus().registerObject(with, new Ping, QDBusConnection::ExportAllSlots);
        } else if (what == "alive") {
            QDBusConnection::systemBus().registerObject(with, new Alive, QDBusConnection::ExportAllSlots);
        } else if (what == "take") {
            if (!QDBusConnection::systemBus().registerService(with))
                _exit(98);
        } else if (what == "release") {
            QDBusConnection::systemBus().unregisterService(with);
        } else {
            fprintf(stderr, "watchedchild: %s?\n", qPrintable(step));
            _exit(97);
        }
    }
    return application.exec();
}

#include "watchedchild.moc"
