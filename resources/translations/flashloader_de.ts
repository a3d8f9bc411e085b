<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>DFUThread</name>
    <message>
        <source>Search for DFU USB device - This might take a few seconds</source>
        <translation>Suche DFU USB-Gerät - Dies kann einige Sekunden dauern</translation>
    </message>
    <message>
        <source>No DFU capable USB device found</source>
        <translation>Kein DFU-fähiges USB-Gerät gefunden</translation>
    </message>
    <message>
        <source>More than one DFU capable USB device found</source>
        <translation>Mehr als ein DFU-fähiges USB-Gerät gefunden</translation>
    </message>
    <message>
        <source>Lost device after RESET</source>
        <translation>Gerät nach RESET verloren</translation>
    </message>
    <message>
        <source> - Functional descriptor</source>
        <translation> - Funktionaler Deskriptor</translation>
    </message>
    <message>
        <source> - Opening error</source>
        <translation> - Fehler beim öffnen</translation>
    </message>
    <message>
        <source> - Configuration error</source>
        <translation> - Konfigurationsfehler</translation>
    </message>
    <message>
        <source> - Alt interface error</source>
        <translation> - Fehler der alternativen Schnittstelle</translation>
    </message>
    <message>
        <source> - Get status error</source>
        <translation> - Fehler beim Statusabruf</translation>
    </message>
    <message>
        <source> - Detaching error</source>
        <translation> - Fehler beim Trennen</translation>
    </message>
    <message>
        <source> - Clear status error</source>
        <translation> - Fehler beim Zurücksetzen des Status</translation>
    </message>
    <message>
        <source> - Interface error</source>
        <translation> - Schnittstellenfehler</translation>
    </message>
    <message>
        <source> - In Runtime Mode error</source>
        <translation> - Fehler im Laufzeitmodus</translation>
    </message>
    <message>
        <source>Error during download</source>
        <translation>Fehler während der Übertragung</translation>
    </message>
    <message>
        <source>Device&apos;s firmware is corrupt</source>
        <translation>Fehler beim Übertragen der Firmware</translation>
    </message>
    <message>
        <source>Program memory function failed</source>
        <translation>Programmspeicherfunktion fehlgeschlagen</translation>
    </message>
    <message>
        <source>Flashing completed</source>
        <translation>Flashen abgeschlossen</translation>
    </message>
    <message>
        <source>
Please perform Tessel restart!</source>
        <translation>
Bitte Tessel neu starten!</translation>
    </message>
    <message>
        <source>Calculate MD5 Hashes</source>
        <translation>MD5-Prüfsummen werden berechnet</translation>
    </message>
    <message>
        <source>Error calculating MD5 Hash</source>
        <translation>Fehler beim Berechnen der MD5-Prüfsumme</translation>
    </message>
    <message>
        <source>Extracting firmware</source>
        <translation>Firmware wird entpackt</translation>
    </message>
    <message>
        <source>

The selected firmware files are corrupted or
this version of %1 does not match with these files.
Try again and be sure that
the latest version of this software is installed</source>
        <translation>

Die ausgewählten Firmware-Dateien sind beschädigt oder
diese Version von %1 passt nicht zu diesen Dateien.
Versuchen Sie es erneut und stellen Sie sicher,
dass die neueste Version dieser Software installiert ist</translation>
    </message>
    <message>
        <source>File can&apos;t be opened</source>
        <translation>Datei kann nicht geöffnet werden</translation>
    </message>
    <message>
        <source>

The selected firmware file
%1
can&apos;t be opened</source>
        <translation>

Die ausgewählte Firmware-Datei
%1
kann nicht geöffnet werden</translation>
    </message>
    <message>
        <source>Unable to open gpg file</source>
        <translation>Gpg-Datei kann nicht geöffnet werden</translation>
    </message>
    <message>
        <source>Invalid digital signature</source>
        <translation>Ungültige digitale Signatur</translation>
    </message>
    <message>
        <source>Error starting GPG, restart again</source>
        <translation>Fehler beim Starten von GPG, bitte neu starten</translation>
    </message>
    <message>
        <source>Failed to copy file %1</source>
        <translation>Fehler beim Kopieren von %1</translation>
    </message>
    <message>
        <source>Failed to copy file
%1
to
%2</source>
        <translation>Fehler beim Kopieren von
%1
nach
%2</translation>
    </message>
    <message>
        <source>Error in firmware extraction</source>
        <translation>Fehler beim Entpacken der Firmware</translation>
    </message>
    <message>
        <source>Package contains no firmware files</source>
        <translation>Paket enthält keine Firmware-Dateien</translation>
    </message>
    <message>
        <source>Building sys file lists</source>
        <translation>sys-Dateilisten werden erstellt</translation>
    </message>
    <message>
        <source>Calculating total file size</source>
        <translation>Gesamtgröße wird berechnet</translation>
    </message>
    <message>
        <source>Packages contain zero sized files</source>
        <translation>Pakete enthalten Dateien der Größe null</translation>
    </message>
    <message>
        <source>Package is too large to flash</source>
        <translation>Paket ist zu groß zum Flashen</translation>
    </message>
    <message>
        <source>Unable to start %1</source>
        <translation>%1 kann nicht gestartet werden</translation>
    </message>
    <message>
        <source>%1 ended without any output</source>
        <translation>%1 wurde ohne jede Ausgabe beendet</translation>
    </message>
    <message>
        <source> - File </source>
        <translation> - Datei </translation>
    </message>
</context>
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
    <name>Fileverify</name>
    <message>
        <source>Firmware files not found</source>
        <translation>Firmware-Dateien nicht gefunden</translation>
    </message>
    <message>
        <source>Files found</source>
        <translation>Dateien gefunden</translation>
    </message>
    <message>
        <source>Firmware counter part file not found</source>
        <translation>Firmware Zusatzdatei nicht gefunden</translation>
    </message>
    <message>
        <source>The selected file is no firmware file</source>
        <translation>Die ausgewählte Datei ist keine Firmware-Datei</translation>
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
