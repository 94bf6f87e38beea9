#include "core/orvo.h"
#include "records/orvodevice.h"

#include <QHostAddress>
#include <QtTest>

Q_DECLARE_METATYPE(QHostAddress)
Q_DECLARE_METATYPE(OrvoList<OrvoNetworkAddress>)

using Encryption = OrvoNetworkProfileWirelessEncryption;

namespace {

OrvoNetworkAddress address(const char* ip, int protocol)
{
    return OrvoNetworkAddress().setIp(ip).setProtocol(protocol);
}

OrvoList<OrvoNetworkAddress> addresses(const QList<OrvoNetworkAddress>& list)
{
    return list;
}

} // namespace

class tst_OrvoNetwork : public QObject
{
    Q_OBJECT

private slots:
    void macAddressesGetColons_data()
    {
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("colons");
        QTest::newRow("digits") << "001122334455"
                                << "00:11:22:33:44:55";
        QTest::newRow("case is kept") << "aAbBcCdDeEfF"
                                      << "aA:bB:cC:dD:eE:fF";
    }

    void macAddressesGetColons()
    {
        QFETCH(QString, plain);
        QFETCH(QString, colons);
        QCOMPARE(orvoNoColonMac2mac(plain), colons);
        QCOMPARE(orvoMac2NoColonMac(colons), plain);
    }

    void theLengthOfMacAddressesIsNotChecked()
    {
        QCOMPARE(orvoNoColonMac2mac("0011223344556677"), QString("00:11:22:33:44:55"));
        QCOMPARE(orvoNoColonMac2mac("001"), QString("00:1::::"));
        QCOMPARE(orvoNoColonMac2mac(""), QString(":::::"));
        QCOMPARE(orvoMac2NoColonMac("00:11:22:33:44:55:66"), QString("001122334455"));
        QCOMPARE(orvoMac2NoColonMac("00-11-2"), QString("00112"));
        QCOMPARE(orvoMac2NoColonMac(""), QString());
    }

    void prefixesBecomeMasks_data()
    {
        QTest::addColumn<int>("prefix");
        QTest::addColumn<QString>("mask");
        QTest::newRow("0") << 0 << "0.0.0.0";
        QTest::newRow("1") << 1 << "128.0.0.0";
        QTest::newRow("8") << 8 << "255.0.0.0";
        QTest::newRow("15") << 15 << "255.254.0.0";
        QTest::newRow("24") << 24 << "255.255.255.0";
        QTest::newRow("25") << 25 << "255.255.255.128";
        QTest::newRow("31") << 31 << "255.255.255.254";
        QTest::newRow("32") << 32 << "255.255.255.255";
        QTest::newRow("33") << 33 << "0.0.0.0";
        QTest::newRow("64") << 64 << "0.0.0.0";
        QTest::newRow("negative") << -1 << "0.0.0.0";
    }

    void prefixesBecomeMasks()
    {
        QFETCH(int, prefix);
        QTEST(orvoPrefixToNetmask(prefix), "mask");
    }

    void addressesBecomeText_data()
    {
        QTest::addColumn<QHostAddress>("address");
        QTest::addColumn<QString>("text");
        QTest::newRow("high octet first") << QHostAddress(quint32(0x0A141E28)) << "10.20.30.40";
        QTest::newRow("all ones") << QHostAddress(QHostAddress::Broadcast) << "255.255.255.255";
        QTest::newRow("any of version 4") << QHostAddress(QHostAddress::AnyIPv4) << "0.0.0.0";
        QTest::newRow("version 6") << QHostAddress("fe80::1") << "fe80::1";
        QTest::newRow("none") << QHostAddress() << "";
    }

    void addressesBecomeText()
    {
        QFETCH(QHostAddress, address);
        QTEST(orvoQHostAddressToIp(address), "text");
    }

    void onlyTheFirstAddressOfAnInterfaceCounts_data()
    {
        QTest::addColumn<OrvoList<OrvoNetworkAddress>>("list");
        QTest::addColumn<QString>("ip");
        QTest::newRow("none") << addresses({}) << QString();
        QTest::newRow("version 4") << addresses({address("10.0.0.1", 0)}) << "10.0.0.1";
        QTest::newRow("version 4 first") << addresses({address("10.0.0.1", 0), address("10.0.0.2", 0)}) << "10.0.0.1";
        QTest::newRow("version 6 first") << addresses({address("fe80::1", 1), address("10.0.0.1", 0)}) << QString();
    }

    void onlyTheFirstAddressOfAnInterfaceCounts()
    {
        QFETCH(OrvoList<OrvoNetworkAddress>, list);
        QFETCH(QString, ip);
        OrvoNetworkInfo wired;
        wired.setWired(OrvoNetworkWiredInterface().setAddresses(list));
        QCOMPARE(orvoNetworkInfoToWiredAddr4(wired).ip(), ip);
        QCOMPARE(orvoNetworkInfoToWiredAddr4(wired).isEmpty(), ip.isEmpty());
        QVERIFY(orvoNetworkInfoToWirelessAddr4(wired).isEmpty());
        OrvoNetworkInfo wireless;
        wireless.setWireless(OrvoNetworkWirelessInterface().setAddresses(list));
        QCOMPARE(orvoNetworkInfoToWirelessAddr4(wireless).ip(), ip);
        QCOMPARE(orvoNetworkInfoToWirelessAddr4(wireless).isEmpty(), ip.isEmpty());
        QVERIFY(orvoNetworkInfoToWiredAddr4(wireless).isEmpty());
    }

    void allNameServersOfVersion4Count()
    {
        OrvoNetworkInfo info;
        QCOMPARE(orvoNetworkInfoToDns4(info), QStringList());
        info.setDns(addresses({address("fe80::1", 1), address("9.9.9.9", 0), address("fe80::2", 1),
                               address("1.1.1.1", 0), address("9.9.9.9", 0)}));
        QCOMPARE(orvoNetworkInfoToDns4(info), (QStringList{"9.9.9.9", "1.1.1.1", "9.9.9.9"}));
    }

    void theFirstGatewayOfVersion4Counts()
    {
        OrvoNetworkInfo info;
        QCOMPARE(orvoNetworkInfoToGateway4(info), QString());
        info.setGateways(addresses({address("fe80::1", 1)}));
        QCOMPARE(orvoNetworkInfoToGateway4(info), QString());
        info.setGateways(addresses({address("fe80::1", 1), address("10.0.0.1", 0), address("10.0.0.2", 0)}));
        QCOMPARE(orvoNetworkInfoToGateway4(info), QString("10.0.0.1"));
    }

    // Wi-Fi keys

    void noNetworkWithoutEncryptionHasAKey()
    {
        QCOMPARE(orvoNetworkIsKeyValid("", Encryption::None_), QString());
        QCOMPARE(orvoNetworkIsKeyValid("x", Encryption::None_), QString("Network doesn't require a key!"));
    }

    /// For each length: what a key of letters, of digits, of digits of either case and of no ASCII is told.
    void wepKeys()
    {
        const QString wrongSize = "WEP keys must be either 5, 10, 13 or 26 characters in size!";
        for (int n = 0; n < 40; ++n) {
            QString letters, digits, foreign;
            if (n == 5 || n == 13) {
                foreign = QString("%1 character long WEP keys must be normal characters or symbols!").arg(n);
            } else if (n == 10 || n == 26) {
                letters = foreign = QString("%1 character long WEP keys must be hexadecimal (0-9 or A-F)!").arg(n);
            } else {
                letters = digits = foreign = wrongSize;
            }
            compareKeys(n, Encryption::Wep, letters, digits, foreign);
        }
    }

    void wpaKeys()
    {
        const QString tooLong = "WPA-PSK keys must be between 8 and 63 characters long!";
        const QString tooShort = "WPA-PSK keys must be at least 8 characters!";
        for (int n = 0; n < 80; ++n) {
            QString letters, digits, foreign;
            if (n < 8)
                letters = digits = foreign = tooShort;
            else if (n < 64)
                foreign = "WPA-PSK keys must be normal ASCII characters!";
            else if (n == 64)
                letters = foreign = "64 character long WPA-PSK keys must be hexadecimal (0-9 or A-F)!";
            else
                letters = digits = foreign = tooLong;
            compareKeys(n, Encryption::WpaPsk, letters, digits, foreign);
        }
    }

    void symbolsAndControlCharactersAreAscii()
    {
        QCOMPARE(orvoNetworkIsKeyValid("a b!~", Encryption::Wep), QString());
        QCOMPARE(orvoNetworkIsKeyValid(QString::fromLatin1("\x7f\x01\0\tx", 5), Encryption::Wep), QString());
    }

    void hexadecimalDigitsEndAtF()
    {
        QCOMPARE(orvoNetworkIsKeyValid("0123456789", Encryption::Wep), QString());
        QCOMPARE(orvoNetworkIsKeyValid("abcdefABCD", Encryption::Wep), QString());
        for (const char* const key : {"abcdefABCg", "abcdefABCG", "012345678:", "012345678/", "012345678@"})
            QVERIFY2(!orvoNetworkIsKeyValid(key, Encryption::Wep).isEmpty(), key);
    }

    void bytesCountNotCharacters()
    {
        // Four characters, five bytes; thirteen characters, twenty-six bytes.
        QCOMPARE(orvoNetworkIsKeyValid(QString::fromUtf8("abcä"), Encryption::Wep),
                 QString("5 character long WEP keys must be normal characters or symbols!"));
        QCOMPARE(orvoNetworkIsKeyValid(QString(13, QChar(0xE4)), Encryption::Wep),
                 QString("26 character long WEP keys must be hexadecimal (0-9 or A-F)!"));
        QCOMPARE(orvoNetworkIsKeyValid(QString::fromUtf8("abcäöü"), Encryption::WpaPsk),
                 QString("WPA-PSK keys must be normal ASCII characters!"));
    }

    void anotherEncryptionIsUnknown()
    {
        for (const int encryption : {-1, 3, 100})
            for (const char* const key : {"", "12345678"})
                QCOMPARE(orvoNetworkIsKeyValid(key, Encryption::Enum(encryption)),
                         QString("Unknown wifi encryption type!"));
    }

private:
    static void compareKeys(int n, Encryption::Enum encryption, const QString& letters, const QString& digits,
                            const QString& foreign)
    {
        QCOMPARE(orvoNetworkIsKeyValid(QString(n, 'z'), encryption), letters);
        QCOMPARE(orvoNetworkIsKeyValid(QString(n, '7'), encryption), digits);
        QCOMPARE(orvoNetworkIsKeyValid(QString(n, 'F'), encryption), digits);
        QCOMPARE(orvoNetworkIsKeyValid(QString(n, 'a'), encryption), digits);
        if (n >= 2)
            QCOMPARE(orvoNetworkIsKeyValid(QString::fromUtf8("ä") + QString(n - 2, '7'), encryption), foreign);
    }
};

QTEST_APPLESS_MAIN(tst_OrvoNetwork)
#include "tst_orvonetwork.moc"
