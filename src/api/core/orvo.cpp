#include "core/orvo.h"

#include "core/model/cmabstractworker.h"
#include "core/model/cmroot.h"
#include "core/orvoJson.h"
#include "records/orvoconstants.h"
#include "records/orvodevice.h"
#include "records/orvovalue.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDateTime>
#include <QDebug>
#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QThread>
#include <QUuid>

#include <ctime>
#include <sys/prctl.h>

bool orvoConnect(const QObject* sender, const char* signal, const QObject* receiver, const char* method,
                 Qt::ConnectionType type)
{
    const bool connectSucceeded = QObject::connect(sender, signal, receiver, method, type);
    Q_ASSERT(connectSucceeded);
    return connectSucceeded;
}

bool orvoDisconnect(const QObject* sender, const char* signal, const QObject* receiver, const char* method)
{
    return QObject::disconnect(sender, signal, receiver, method);
}

long long QDateTime_currentMSecsSinceEpoch()
{
    return QDateTime::currentMSecsSinceEpoch();
}

long long QDateTime_toMSecsSinceEpoch(const QDateTime& time)
{
    return time.toMSecsSinceEpoch();
}

QDateTime QDateTime_fromMSecsSinceEpoch(long long msecs)
{
    return QDateTime::fromMSecsSinceEpoch(msecs);
}

long long timeval_toMsec(const timeval* time)
{
    return static_cast<long long>(time->tv_sec) * 1000 + time->tv_usec / 1000;
}

long long QElapsedTimer_getMonotonicMsecs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

QString orvoLocalTimeDateString()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd hh:mm:ss.zzz"));
}

QByteArray QCryptographicHash_hash_sha256(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

QByteArray QByteArray_leftUtf8(const QByteArray& bytes, int n)
{
    if (bytes.size() <= n)
        return bytes;
    for (int i = n; i > 0; --i)
        if ((bytes.at(i) & 0xC0) != 0x80)
            return bytes.left(i);
    return QByteArray();
}

QString orvoGenerateUuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString orvoValueToQString(const OrvoValue& value)
{
    switch (value.type()) {
    case 1:
        return value.bool_() ? QStringLiteral("true") : QStringLiteral("false");
    case 2:
        return QString::number(value.byte_());
    case 3:
        return QString::number(value.i16_());
    case 4:
        return QString::number(value.i32_());
    case 5:
        return QString::number(value.i64_());
    case 6:
        return QString::number(value.double_(), 'g', 6);
    case 7:
        return value.string_();
    default:
        return QString::fromUtf8(OrvoJson::serialize(value.__variant()));
    }
}

void orvoSetThreadName(const QString& name)
{
    const QByteArray full = name.toUtf8();
    const QByteArray cut = QByteArray_leftUtf8(full, 15);
    if (cut.size() != full.size())
        qDebug() << "orvoSetThreadName"
                 << ": truncate thread name" << full << cut;
    prctl(PR_SET_NAME, cut.constData());
}

QDBusConnection orvoDBusConnection()
{
    return QDBusConnection::connectToBus(
        QDBusConnection::SystemBus,
        QStringLiteral("orvoConn-%1").arg(reinterpret_cast<quintptr>(QThread::currentThread())));
}

double orvoScaleVolume(double sourceVolume, double sourceMaxVolume, double destinationMaxVolume)
{
    Q_ASSERT(sourceMaxVolume >= 0);
    Q_ASSERT(destinationMaxVolume >= 0);
    Q_ASSERT(sourceVolume >= 0 && sourceVolume <= sourceMaxVolume);
    if (sourceMaxVolume == 0)
        return destinationMaxVolume;
    return destinationMaxVolume * sourceVolume / sourceMaxVolume;
}

int orvoScaleVolume(double sourceVolume, double sourceMaxVolume, int destinationMaxVolume)
{
    const double scaled = orvoScaleVolume(sourceVolume, sourceMaxVolume, double(destinationMaxVolume));
    // No volume is negative.
    return int(scaled + 0.5); // NOLINT(bugprone-incorrect-roundings)
}

void orvoReportUserActivity()
{
    {
        static QMutex mutex;
        static long long last = 0;
        const QMutexLocker locker(&mutex);
        const long long now = QElapsedTimer_getMonotonicMsecs();
        if (now - last <= 5000)
            return;
        last = now;
    }
    CMRoot()->invoke(OrvoSystemManagerResetIdleTimePath(), QVariant());
    CMRoot()->invoke(OrvoPowerManagerTargetRequestPath(), OrvoPowerManagerTarget()
                                                              .setTarget(OrvoPowerManagerTargets::On)
                                                              .setReason(OrvoPowerManagerTargetReason::UserActivity));
}
