<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>Greeter</name>
    <message>
        <source>Hello</source>
        <translation>Grüß Gott</translation>
    </message>
    <message>
        <source>Good day</source>
        <translation>Grüß Gott</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>Von %2: %1</translation>
    </message>
    <message numerus="yes">
        <source>%n file(s) in %1</source>
        <translation>
            <numerusform>%n Datei in %1</numerusform>
            <numerusform>%n Dateien in %1</numerusform>
        </translation>
    </message>
    <message>
        <source>Open</source>
        <comment>verb</comment>
        <translation>Öffnen</translation>
    </message>
    <message>
        <source>Open</source>
        <comment>state</comment>
        <translation>Offen</translation>
    </message>
</context>
<context>
    <name>Other</name>
    <message>
        <source>Hello</source>
        <translation>Hallo</translation>
    </message>
</context>
</TS>
