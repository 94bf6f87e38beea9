#include "core/orvo.h"

#include "records/orvodevice.h"

#include <QByteArray>
#include <QHostAddress>

#include <algorithm>
#include <cctype>

// The helpers for network addresses and keys.

namespace {

OrvoNetworkAddress firstAddress4(const OrvoList<OrvoNetworkAddress>& addresses)
{
    const OrvoNetworkAddress first = addresses.value(0);
    return first.protocol() == 0 ? first : OrvoNetworkAddress();
}

QStringList addresses4(const OrvoList<OrvoNetworkAddress>& addresses)
{
    QStringList ips;
    const QList<OrvoNetworkAddress> typed = addresses.toTyped();
    for (const OrvoNetworkAddress& address : typed)
        if (address.protocol() == 0)
            ips.append(address.ip());
    return ips;
}

QString dotted(quint32 address)
{
    return QStringLiteral("%1.%2.%3.%4")
        .arg(address >> 24)
        .arg((address >> 16) & 0xFF)
        .arg((address >> 8) & 0xFF)
        .arg(address & 0xFF);
}

bool isAscii(const QByteArray& key)
{
    return std::all_of(key.cbegin(), key.cend(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool isHexadecimal(const QByteArray& key)
{
    return std::all_of(key.cbegin(), key.cend(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

QString wepKeyFault(const QByteArray& key)
{
    const int n = key.size();
    if (n == 5 || n == 13)
        return isAscii(key) ? QString()
                            : QString::number(n)
                                  + QLatin1String(" character long WEP keys must be normal characters or symbols!");
    if (n == 10 || n == 26)
        return isHexadecimal(key)
                   ? QString()
                   : QString::number(n) + QLatin1String(" character long WEP keys must be hexadecimal (0-9 or A-F)!");
    return QStringLiteral("WEP keys must be either 5, 10, 13 or 26 characters in size!");
}

QString wpaPskKeyFault(const QByteArray& key)
{
    const int n = key.size();
    if (n < 8)
        return QStringLiteral("WPA-PSK keys must be at least 8 characters!");
    if (n < 64)
        return isAscii(key) ? QString() : QStringLiteral("WPA-PSK keys must be normal ASCII characters!");
    if (n == 64)
        return isHexadecimal(key) ? QString()
                                  : QStringLiteral("64 character long WPA-PSK keys must be hexadecimal (0-9 or A-F)!");
    return QStringLiteral("WPA-PSK keys must be between 8 and 63 characters long!");
}

} // namespace

QString orvoNoColonMac2mac(const QString& mac)
{
    QStringList pairs;
    for (int i = 0; i < 12; i += 2)
        pairs.append(mac.mid(i, 2));
    return pairs.join(QLatin1Char(':'));
}

QString orvoMac2NoColonMac(const QString& mac)
{
    QString digits;
    for (int i = 0; i < 18; i += 3)
        digits += mac.midRef(i, 2);
    return digits;
}

QString orvoPrefixToNetmask(int prefix)
{
    if (prefix <= 0 || prefix > 32)
        return dotted(0);
    return dotted(~quint32(0) << (32 - prefix));
}

QString orvoQHostAddressToIp(const QHostAddress& address)
{
    if (address.protocol() == QAbstractSocket::IPv4Protocol)
        return dotted(address.toIPv4Address());
    return address.toString();
}

OrvoNetworkAddress orvoNetworkInfoToWirelessAddr4(const OrvoNetworkInfo& info)
{
    return firstAddress4(info.wireless().addresses());
}

OrvoNetworkAddress orvoNetworkInfoToWiredAddr4(const OrvoNetworkInfo& info)
{
    return firstAddress4(info.wired().addresses());
}

QStringList orvoNetworkInfoToDns4(const OrvoNetworkInfo& info)
{
    return addresses4(info.dns());
}

QString orvoNetworkInfoToGateway4(const OrvoNetworkInfo& info)
{
    return addresses4(info.gateways()).value(0);
}

QString orvoNetworkIsKeyValid(const QString& key, OrvoNetworkProfileWirelessEncryption::Enum encryption)
{
    const QByteArray bytes = key.toUtf8();
    switch (encryption) {
    case OrvoNetworkProfileWirelessEncryption::None_:
        return bytes.isEmpty() ? QString() : QStringLiteral("Network doesn't require a key!");
    case OrvoNetworkProfileWirelessEncryption::Wep:
        return wepKeyFault(bytes);
    case OrvoNetworkProfileWirelessEncryption::WpaPsk:
        return wpaPskKeyFault(bytes);
    }
    return QStringLiteral("Unknown wifi encryption type!");
}
