<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr">
<context>
    <name>Greeter</name>
    <message>
        <source>Hello</source>
        <translation>Bonjour</translation>
    </message>
    <message>
        <source>Good day</source>
        <translation>Bonjour</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 sur %2</translation>
    </message>
    <message numerus="yes">
        <source>%n file(s) in %1</source>
        <translation>
            <numerusform>%n fichier dans %1</numerusform>
            <numerusform>%n fichiers dans %1</numerusform>
        </translation>
    </message>
    <message>
        <source>Open</source>
        <comment>verb</comment>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>Open</source>
        <comment>state</comment>
        <translation>Ouvert</translation>
    </message>
</context>
<context>
    <name>Other</name>
    <message>
        <source>Hello</source>
        <translation>Salut</translation>
    </message>
</context>
</TS>
