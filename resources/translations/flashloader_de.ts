<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>Dialog</name>
    <message>
        <source>Installation corrupted! Please uninstall and install again!</source>
        <translation>Installation beschädigt! Bitte deinstallieren und neu installieren!</translation>
    </message>
</context>
<context>
    <name>ErrorTexts</name>
    <message>
        <source>ERROR</source>
        <translation>FEHLER</translation>
    </message>
    <message>
        <source>WARNING</source>
        <translation>WARNUNG</translation>
    </message>
    <message>
        <source>INFO</source>
        <translation>INFO</translation>
    </message>
    <message>
        <source>WELCOME</source>
        <translation>WILLKOMMEN</translation>
    </message>
    <message>
        <source>Device is not connected</source>
        <translation>Gerät ist nicht verbunden</translation>
    </message>
    <message>
        <source>Process aborted! Perform device restart before flashing again</source>
        <translation>Vorgang abgebrochen! Vor erneutem Flashen Gerät neu starten</translation>
    </message>
    <message>
        <source>Flashing not completed</source>
        <translation>Flashen nicht abgeschlossen</translation>
    </message>
    <message>
        <source>Process will be aborted! This might take a few seconds.</source>
        <translation>Vorgang wird abgebrochen! Dies kann einige Sekunden dauern.</translation>
    </message>
    <message>
        <source>You can get more information from the manual

Please perform device restart before flashing again</source>
        <translation>Weitere Informationen finden Sie im Handbuch

Bitte vor erneutem Flashen Gerät neu starten</translation>
    </message>
</context>
<context>
    <name>Settings</name>
    <message>
        <source>Unable to delete Temp Folder - Restart Application</source>
        <translation>Temporärer Ordner kann nicht gelöscht werden - Anwendung neu starten</translation>
    </message>
    <message>
        <source>Unable to create Temp Folder - Restart Application</source>
        <translation>Temporärer Ordner kann nicht erstellt werden - Anwendung neu starten</translation>
    </message>
    <message>
        <source>Unable to delete Gpg Temp Folder - Restart Application</source>
        <translation>Temporärer Gpg-Ordner kann nicht gelöscht werden - Anwendung neu starten</translation>
    </message>
    <message>
        <source>Unable to create Gpg Temp Folder - Restart Application</source>
        <translation>Temporärer Gpg-Ordner kann nicht erstellt werden - Anwendung neu starten</translation>
    </message>
    <message>
        <source>Unable to copy Gpg pubring</source>
        <translation>Gpg pubring kann nicht kopiert werden</translation>
    </message>
    <message>
        <source>Unable to copy Gpg trustdb</source>
        <translation>Gpg trustdb kann nicht kopiert werden</translation>
    </message>
</context>
</TS>
