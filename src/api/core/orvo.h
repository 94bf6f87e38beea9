#pragma once

#include "records/orvovocabulary.h"

#include <QString>
#include <QStringList>
#include <Qt>

#include <sys/time.h>

class OrvoNetworkAddress;
class OrvoNetworkInfo;
class OrvoValue;
class QByteArray;
class QDBusConnection;
class QDateTime;
class QHostAddress;
class QObject;

// Small helpers that the whole library shares. Without state, usable from any thread unless told.

/// QObject::connect on string signatures; a connection that cannot be made stops the process at once.
bool orvoConnect(const QObject* sender, const char* signal, const QObject* receiver, const char* method,
                 Qt::ConnectionType type = Qt::AutoConnection);
/// QObject::disconnect; false when there was no such connection.
bool orvoDisconnect(const QObject* sender, const char* signal, const QObject* receiver, const char* method);

/// Milliseconds since the epoch.
long long QDateTime_currentMSecsSinceEpoch();
long long QDateTime_toMSecsSinceEpoch(const QDateTime& time);
QDateTime QDateTime_fromMSecsSinceEpoch(long long msecs);
long long timeval_toMsec(const timeval* time);
/// Milliseconds of the clock that never jumps.
long long QElapsedTimer_getMonotonicMsecs();
/// The current local time as "yyyyMMdd hh:mm:ss.zzz".
QString orvoLocalTimeDateString();

QByteArray QCryptographicHash_hash_sha256(const QByteArray& bytes);
/// The longest head of UTF-8 text that has at most n bytes and splits no character.
QByteArray QByteArray_leftUtf8(const QByteArray& bytes, int n);
/// A new random UUID without braces.
QString orvoGenerateUuid();
/// The payload as text; the record's JSON when it has no scalar payload.
QString orvoValueToQString(const OrvoValue& value);

/// Names the calling thread for the kernel, cut to 15 bytes of UTF-8.
void orvoSetThreadName(const QString& name);

/// The calling thread's own connection to the system bus; to be used in that thread alone.
QDBusConnection orvoDBusConnection();

/// The volume on another scale; on a scale of 0 every volume is the top of the other. All of them 0 or above.
double orvoScaleVolume(double sourceVolume, double sourceMaxVolume, double destinationMaxVolume);
/// The same, rounded.
int orvoScaleVolume(double sourceVolume, double sourceMaxVolume, int destinationMaxVolume);

/// "001122334455" as "00:11:22:33:44:55". Neither checks its text; the case of the digits stays.
QString orvoNoColonMac2mac(const QString& mac);
/// "00:11:22:33:44:55" as "001122334455".
QString orvoMac2NoColonMac(const QString& mac);

/// The IPv4 mask in dotted form, "0.0.0.0" for a prefix that is out of range.
QString orvoPrefixToNetmask(int prefix);
/// The address as text; IPv4 in dotted form.
QString orvoQHostAddressToIp(const QHostAddress& address);
/// The first address of the interface if that is an IPv4 one, an empty record otherwise.
OrvoNetworkAddress orvoNetworkInfoToWirelessAddr4(const OrvoNetworkInfo& info);
OrvoNetworkAddress orvoNetworkInfoToWiredAddr4(const OrvoNetworkInfo& info);
/// All IPv4 name servers, in order.
QStringList orvoNetworkInfoToDns4(const OrvoNetworkInfo& info);
/// The first IPv4 gateway, empty if there is none.
QString orvoNetworkInfoToGateway4(const OrvoNetworkInfo& info);
/// What is wrong with a Wi-Fi key, in English for the user; empty for a good one.
QString orvoNetworkIsKeyValid(const QString& key, OrvoNetworkProfileWirelessEncryption::Enum encryption);

/**
 * Tells the system through CMRoot() that a user did something, so that it stays awake. At most once in 5,000 ms:
 * further calls are free. Does not wait for an answer.
 */
void orvoReportUserActivity();
