<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>About</name>
    <message>
        <source>About...</source>
        <translation>Über...</translation>
    </message>
    <message>
        <source>Zelko Regeltechnik GmbH - all rights reserved</source>
        <translation>Zelko Regeltechnik GmbH - alle Rechte vorbehalten</translation>
    </message>
    <message>
        <source>Industriestrasse 9, 70565 Stuttgart, Germany</source>
        <translation>Industriestraße 9, 70565 Stuttgart, Deutschland</translation>
    </message>
</context>
<context>
    <name>BreakFlash</name>
    <message>
        <source>Perform Tessel restart</source>
        <translation>Tessel neu starten</translation>
    </message>
    <message>
        <source>Please turn off Tessel NINE® and restart Tessel NINE® in Flash Mode to continue flashing process.

After restart in Flash Mode,
click &apos;OK&apos; to continue flashing!
&apos;Cancel&apos; will abort flashing process and might cause problems with Tessel NINE®.</source>
        <translation>Bitte Tessel NINE® ausschalten und im Flash-Modus neu starten, um den Flash-Vorgang fortzusetzen.

Nach dem Neustart im Flash-Modus
&apos;OK&apos; klicken, um das Flashen fortzusetzen!
&apos;Abbrechen&apos; bricht den Flash-Vorgang ab und kann Probleme mit Tessel NINE® verursachen.</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Device connected!</source>
        <translation>Gerät verbunden!</translation>
    </message>
    <message>
        <source>Device not connected!</source>
        <translation>Gerät nicht verbunden!</translation>
    </message>
</context>
<context>
    <name>Dialog</name>
    <message>
        <source>Installation corrupted! Please uninstall and install again!</source>
        <translation>Installation beschädigt! Bitte deinstallieren und neu installieren!</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Hilfe</translation>
    </message>
    <message>
        <source>&amp;Language</source>
        <translation>&amp;Sprache</translation>
    </message>
    <message>
        <source>Advanced</source>
        <translation>Erweitert</translation>
    </message>
    <message>
        <source>Tessel NINE®</source>
        <translation>Tessel NINE®</translation>
    </message>
    <message>
        <source>USB Cable</source>
        <translation>USB-Kabel</translation>
    </message>
    <message>
        <source>Folder</source>
        <translation>Ordner</translation>
    </message>
    <message>
        <source>Search...</source>
        <translation>Suchen...</translation>
    </message>
    <message>
        <source>Select firmware file</source>
        <translation>Firmware-Datei auswählen</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Aktualisieren</translation>
    </message>
    <message>
        <source>USB Drive</source>
        <translation>USB-Laufwerk</translation>
    </message>
    <message>
        <source>Please select firmware and write files to usb drive</source>
        <translation>Bitte Firmware auswählen und Dateien auf USB-Laufwerk schreiben</translation>
    </message>
    <message>
        <source>Start</source>
        <translation>Start</translation>
    </message>
    <message>
        <source>Download from server</source>
        <translation>Vom Server laden</translation>
    </message>
    <message>
        <source>Please use &apos;Expert Mode&apos; only
according to the
agreement with customer support</source>
        <translation>Bitte &apos;Expertenmodus&apos; nur
nach Absprache mit dem
Kundendienst verwenden</translation>
    </message>
    <message>
        <source>Expert Mode</source>
        <translation>Expertenmodus</translation>
    </message>
    <message>
        <source>Search for latest firmware at Zelko Update Server</source>
        <translation>Neueste Firmware auf dem Zelko Update-Server suchen</translation>
    </message>
    <message>
        <source>Brio®/Mel</source>
        <translation>Brio®/Mel</translation>
    </message>
    <message>
        <source>Update Status</source>
        <translation>Aktualisierungsstatus</translation>
    </message>
    <message>
        <source>Manual</source>
        <translation>Handbuch</translation>
    </message>
    <message>
        <source>F1</source>
        <translation>F1</translation>
    </message>
    <message>
        <source>Log file</source>
        <translation>Protokolldatei</translation>
    </message>
    <message>
        <source>F2</source>
        <translation>F2</translation>
    </message>
    <message>
        <source>English</source>
        <translation>Englisch</translation>
    </message>
    <message>
        <source>Ctrl+E</source>
        <translation>Ctrl+E</translation>
    </message>
    <message>
        <source>German</source>
        <translation>Deutsch</translation>
    </message>
    <message>
        <source>Ctrl+G</source>
        <translation>Ctrl+G</translation>
    </message>
    <message>
        <source>Info</source>
        <translation>Info</translation>
    </message>
    <message>
        <source>F3</source>
        <translation>F3</translation>
    </message>
    <message>
        <source>About</source>
        <translation>Über</translation>
    </message>
    <message>
        <source>F10</source>
        <translation>F10</translation>
    </message>
    <message>
        <source>Flash Boot Loader</source>
        <translation>Boot Loader flashen</translation>
    </message>
    <message>
        <source>Search Zip Files</source>
        <translation>Zip-Dateien suchen</translation>
    </message>
    <message>
        <source>HTTP Download</source>
        <translation>HTTP-Download</translation>
    </message>
    <message>
        <source>Use HTTP</source>
        <translation>HTTP verwenden</translation>
    </message>
    <message>
        <source>**** %1 uses encryption mechanism ****

</source>
        <translation>**** %1 verwendet Verschlüsselung ****

</translation>
    </message>
    <message>
        <source>**** %1 does not use any encryption mechanism ****

</source>
        <translation>**** %1 verwendet keine Verschlüsselung ****

</translation>
    </message>
    <message>
        <source>It is recommended always to use the same usb port 
for flashing, if no problems occurred.
Do not connect or disconnect other USB devices
during flash process.

If possible, please connect device to usb!</source>
        <translation>Es wird empfohlen, zum Flashen immer denselben USB-Anschluss 
zu verwenden, wenn keine Probleme aufgetreten sind.
Während des Flashens keine anderen USB-Geräte
anschließen oder trennen.

Bitte Gerät möglichst jetzt per USB verbinden!</translation>
    </message>
    <message>
        <source>Download Status</source>
        <translation>Downloadstatus</translation>
    </message>
    <message>
        <source>USB Write Status</source>
        <translation>USB-Schreibstatus</translation>
    </message>
    <message>
        <source>Bytes written </source>
        <translation>Bytes geschrieben </translation>
    </message>
    <message>
        <source>KBytes written </source>
        <translation>KBytes geschrieben </translation>
    </message>
    <message>
        <source>Abort</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Flash</source>
        <translation>Flashen</translation>
    </message>
    <message>
        <source>
This will cause abort flashing!</source>
        <translation>
Dadurch wird das Flashen abgebrochen!</translation>
    </message>
    <message>
        <source>
This will cause abort download!</source>
        <translation>
Dadurch wird der Download abgebrochen!</translation>
    </message>
    <message>
        <source>
This will cause abort writing to USB drive!</source>
        <translation>
Dadurch wird das Schreiben auf das USB-Laufwerk abgebrochen!</translation>
    </message>
    <message>
        <source>Application has to be restarted
to apply language changes.
Do you want to restart application now?</source>
        <translation>Die Anwendung muss neu gestartet werden,
um die Sprache zu ändern.
Möchten Sie die Anwendung jetzt neu starten?</translation>
    </message>
    <message>
        <source>Unable to restart application
while flashing is in progress!
Restart later to apply changes.</source>
        <translation>Neustart während des Flashens
nicht möglich!
Später neu starten, um die Änderung zu übernehmen.</translation>
    </message>
    <message>
        <source>Unable to restart application
while downloading files!
Restart later to apply changes.</source>
        <translation>Neustart während des Downloads
nicht möglich!
Später neu starten, um die Änderung zu übernehmen.</translation>
    </message>
    <message>
        <source>Unable to restart application
while writing files to USB drive!
Restart later to apply changes.</source>
        <translation>Neustart während des Schreibens auf das USB-Laufwerk
nicht möglich!
Später neu starten, um die Änderung zu übernehmen.</translation>
    </message>
    <message>
        <source>Open file</source>
        <translation>Datei öffnen</translation>
    </message>
    <message>
        <source>No firmware file in directory</source>
        <translation>Keine Firmware-Datei im Verzeichnis</translation>
    </message>
    <message>
        <source>Connect</source>
        <translation>Verbinden</translation>
    </message>
    <message>
        <source>Current version   </source>
        <translation>Aktuelle Version   </translation>
    </message>
    <message>
        <source>Use Expert Mode</source>
        <translation>Expertenmodus verwenden</translation>
    </message>
    <message>
        <source>Download completed!</source>
        <translation>Download abgeschlossen!</translation>
    </message>
    <message>
        <source>No USB mass storage detected!
Please insert a USB Stick where the firmware can be extracted to.</source>
        <translation>Kein USB-Speicher gefunden!
Bitte einen USB-Stick einstecken, auf den die Firmware geschrieben werden kann.</translation>
    </message>
    <message>
        <source>Please select destination USB drive</source>
        <translation>Bitte das USB-Ziellaufwerk auswählen</translation>
    </message>
    <message>
        <source>USB drives</source>
        <translation>USB-Laufwerke</translation>
    </message>
    <message>
        <source>Unable to remove destination directory!</source>
        <translation>Zielverzeichnis kann nicht entfernt werden!</translation>
    </message>
    <message>
        <source>Unable to create destination directory!</source>
        <translation>Zielverzeichnis kann nicht angelegt werden!</translation>
    </message>
    <message>
        <source>The device waits in update mode: an earlier flash did not end</source>
        <translation>Gerät im Update-Modus: ein früheres Flashen endete nicht</translation>
    </message>
    <message>
        <source>Flash history</source>
        <translation>Flashverlauf</translation>
    </message>
</context>
<context>
    <name>DialogQuestions</name>
    <message>
        <source>Current version equals latest version.
Do you want to continue?
Press &apos;Yes&apos; to perform flashing or &apos;No&apos; to cancel</source>
        <translation>Die aktuelle Version entspricht der neuesten Version.
Möchten Sie fortfahren?
&apos;Ja&apos; zum Flashen, &apos;Nein&apos; zum Abbrechen</translation>
    </message>
    <message>
        <source>Do you want to start flashing?
Press &apos;Yes&apos; to perform flashing or &apos;No&apos; to cancel</source>
        <translation>Möchten Sie das Flashen starten?
&apos;Ja&apos; zum Flashen, &apos;Nein&apos; zum Abbrechen</translation>
    </message>
    <message>
        <source>Selected version is older than current version.
Do you want to continue?
Press &apos;Yes&apos; to perform flashing or &apos;No&apos; to cancel</source>
        <translation>Die ausgewählte Version ist älter als die aktuelle Version.
Möchten Sie fortfahren?
&apos;Ja&apos; zum Flashen, &apos;Nein&apos; zum Abbrechen</translation>
    </message>
    <message>
        <source>Do you really want
to abort download?</source>
        <translation>Möchten Sie den Download
wirklich abbrechen?</translation>
    </message>
    <message>
        <source>Do you really want to close?%1</source>
        <translation>Möchten Sie wirklich schließen?%1</translation>
    </message>
    <message>
        <source>Do you really want to abort
flashing process?</source>
        <translation>Möchten Sie das Flashen
wirklich abbrechen?</translation>
    </message>
    <message>
        <source>Do you really want to abort
writing to USB drive process?</source>
        <translation>Möchten Sie das Schreiben auf das
USB-Laufwerk wirklich abbrechen?</translation>
    </message>
    <message>
        <source>Do you really want to abort
boot loader flashing process?
This will cause serious problems!</source>
        <translation>Möchten Sie das Flashen des Boot Loaders
wirklich abbrechen?
Dies führt zu ernsthaften Problemen!</translation>
    </message>
    <message>
        <source>A new version of %1 is available.
Do you want to upgrade?</source>
        <translation>Eine neue Version von %1 ist verfügbar.
Möchten Sie aktualisieren?</translation>
    </message>
    <message>
        <source>Firmware files already
exist in directory!
Do you want to overwrite
existing files?</source>
        <translation>Firmware-Dateien existieren
bereits im Verzeichnis!
Möchten Sie die vorhandenen
Dateien überschreiben?</translation>
    </message>
    <message>
        <source>Output directory for firmware files already exits!
Do you want to overwrite existing directory?</source>
        <translation>Das Zielverzeichnis für die Firmware-Dateien existiert bereits!
Möchten Sie das vorhandene Verzeichnis überschreiben?</translation>
    </message>
    <message>
        <source>Do you want to download firmware files with version %1?
Press &apos;Yes&apos; to download or &apos;No&apos; to cancel</source>
        <translation>Möchten Sie die Firmware-Dateien der Version %1 herunterladen?
&apos;Ja&apos; zum Herunterladen, &apos;Nein&apos; zum Abbrechen</translation>
    </message>
    <message>
        <source>Do you want to download boot loader file with version %1?
Press &apos;Yes&apos; to download or &apos;No&apos; to cancel</source>
        <translation>Möchten Sie die Boot-Loader-Datei der Version %1 herunterladen?
&apos;Ja&apos; zum Herunterladen, &apos;Nein&apos; zum Abbrechen</translation>
    </message>
    <message>
        <source>Do you want to download firmware file with version %1?
Press &apos;Yes&apos; to download or &apos;No&apos; to cancel</source>
        <translation>Möchten Sie die Firmware-Datei der Version %1 herunterladen?
&apos;Ja&apos; zum Herunterladen, &apos;Nein&apos; zum Abbrechen</translation>
    </message>
    <message>
        <source>The device is in update mode: an earlier flash did not end. Flash the selected firmware now?</source>
        <translation>Das Gerät ist im Update-Modus: Ein früherer Flashvorgang wurde nicht beendet. Die ausgewählte Firmware jetzt flashen?</translation>
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
    <message>
        <source>No permission to open the USB device. The udev rule 70-morvanta.rules of the Morvanta package grants it to the logged-in user: install the package, then plug the device in again.</source>
        <translation>Keine Berechtigung, das USB-Gerät zu öffnen. Die udev-Regel 70-morvanta.rules aus dem Morvanta-Paket erteilt sie dem angemeldeten Benutzer: Paket installieren, dann das Gerät aus- und wieder einstecken.</translation>
    </message>
</context>
<context>
    <name>ExpertSettings</name>
    <message>
        <source>Expert Mode</source>
        <translation>Expertenmodus</translation>
    </message>
    <message>
        <source>Do you really want to use &apos;Expert Mode&apos; to search for firmware?

This is only recommended according to the
agreement with customer support!</source>
        <translation>Möchten Sie den &apos;Expertenmodus&apos; wirklich für die Firmware-Suche verwenden?

Dies wird nur nach Absprache mit dem
Kundendienst empfohlen!</translation>
    </message>
    <message>
        <source>Optional: Enter your User Identifier received from customer support.</source>
        <translation>Optional: Geben Sie die Benutzerkennung ein, die Sie vom Kundendienst erhalten haben.</translation>
    </message>
    <message>
        <source>User Identifier</source>
        <translation>Benutzerkennung</translation>
    </message>
</context>
<context>
    <name>FileDownloader</name>
    <message>
        <source>Try to connect to Zelko Update Server</source>
        <translation>Verbindung zum Zelko Update-Server wird aufgebaut</translation>
    </message>
    <message>
        <source>Connected to Zelko Update Server</source>
        <translation>Mit dem Zelko Update-Server verbunden</translation>
    </message>
    <message>
        <source>Server is currently on update!
Try again later!</source>
        <translation>Server wird zur Zeit aktualisiert!
Versuchen Sie es später erneut!</translation>
    </message>
    <message>
        <source>No versions are available
to download!</source>
        <translation>Es sind keine Versionen
zum Herunterladen verfügbar!</translation>
    </message>
    <message>
        <source>No versions are available
in expert mode!</source>
        <translation>Im Expertenmodus sind
keine Versionen verfügbar!</translation>
    </message>
    <message>
        <source>Select version to download</source>
        <translation>Version zum Herunterladen auswählen</translation>
    </message>
    <message>
        <source>Firmware version</source>
        <translation>Firmware-Version</translation>
    </message>
    <message>
        <source>Select Directory for storing files</source>
        <translation>Verzeichnis zum Speichern der Dateien auswählen</translation>
    </message>
    <message>
        <source>Cannot open </source>
        <translation>Kann </translation>
    </message>
    <message>
        <source>
 for writing: </source>
        <translation>
 nicht zum Schreiben öffnen: </translation>
    </message>
    <message>
        <source>Internet connection timeout!
Reconnect to internet and restart process</source>
        <translation>Zeitüberschreitung der Internetverbindung!
Internetverbindung wiederherstellen und den Vorgang neu starten</translation>
    </message>
    <message>
        <source>Unable to connect to server</source>
        <translation>Keine Verbindung zum Server möglich</translation>
    </message>
    <message>
        <source>Unable to login server</source>
        <translation>Anmeldung am Server nicht möglich</translation>
    </message>
    <message>
        <source>Login to Zelko Update Server successful</source>
        <translation>Anmeldung am Zelko Update-Server erfolgreich</translation>
    </message>
    <message>
        <source>Connected but
unable to locate folder</source>
        <translation>Verbunden, aber
Ordner nicht gefunden</translation>
    </message>
    <message>
        <source>Invalid User identifier</source>
        <translation>Ungültige Benutzerkennung</translation>
    </message>
    <message>
        <source>Connected but
unable to get files</source>
        <translation>Verbunden, aber
Dateien können nicht geladen werden</translation>
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
    <name>FlashTexts</name>
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
        <source>%1 was ended by a signal</source>
        <translation>%1 wurde durch ein Signal beendet</translation>
    </message>
    <message>
        <source>%1 ended with exit code %2</source>
        <translation>%1 wurde mit dem Rückgabewert %2 beendet</translation>
    </message>
    <message>
        <source> - File </source>
        <translation> - Datei </translation>
    </message>
    <message>
        <source>No error condition is present</source>
        <translation>Kein Fehler</translation>
    </message>
    <message>
        <source>File is not targeted for use by this device</source>
        <translation>Die Datei ist nicht für dieses Gerät bestimmt</translation>
    </message>
    <message>
        <source>File is for this device but fails some vendor-specific test</source>
        <translation>Die Datei ist für dieses Gerät, besteht aber eine herstellerspezifische Prüfung nicht</translation>
    </message>
    <message>
        <source>Device is unable to write memory</source>
        <translation>Das Gerät kann den Speicher nicht beschreiben</translation>
    </message>
    <message>
        <source>Memory erase function failed</source>
        <translation>Löschen des Speichers fehlgeschlagen</translation>
    </message>
    <message>
        <source>Memory erase check failed</source>
        <translation>Prüfung des gelöschten Speichers fehlgeschlagen</translation>
    </message>
    <message>
        <source>Programmed memory failed verification</source>
        <translation>Überprüfung des beschriebenen Speichers fehlgeschlagen</translation>
    </message>
    <message>
        <source>Cannot program memory due to received address that is out of range</source>
        <translation>Speicher kann nicht beschrieben werden: die empfangene Adresse liegt außerhalb des Bereichs</translation>
    </message>
    <message>
        <source>Received DFU_DNLOAD with wLength = 0, but device does not think that it has all data yet</source>
        <translation>DFU_DNLOAD mit wLength = 0 empfangen, aber dem Gerät fehlen noch Daten</translation>
    </message>
    <message>
        <source>Device&apos;s firmware is corrupt. It cannot return to run-time (non-DFU) operations</source>
        <translation>Die Firmware des Geräts ist beschädigt. Es kann nicht in den Normalbetrieb (ohne DFU) zurückkehren</translation>
    </message>
    <message>
        <source>iString indicates a vendor specific error</source>
        <translation>iString meldet einen herstellerspezifischen Fehler</translation>
    </message>
    <message>
        <source>Device detected unexpected USB reset signaling</source>
        <translation>Das Gerät hat einen unerwarteten USB-Reset erkannt</translation>
    </message>
    <message>
        <source>Device detected unexpected power on reset</source>
        <translation>Das Gerät hat einen unerwarteten Einschalt-Reset erkannt</translation>
    </message>
    <message>
        <source>Something went wrong, but the device does not know what it was</source>
        <translation>Etwas ist schiefgegangen, aber das Gerät weiß nicht, was</translation>
    </message>
    <message>
        <source>Device stalled an unexpected request</source>
        <translation>Das Gerät hat eine unerwartete Anfrage abgewiesen</translation>
    </message>
    <message>
        <source>Another run is flashing the device on port %1</source>
        <translation>Ein anderer Lauf flasht das Gerät an Port %1</translation>
    </message>
    <message>
        <source>Cannot lock port %1: %2</source>
        <translation>Port %1 kann nicht gesperrt werden: %2</translation>
    </message>
    <message>
        <source>The device did not come back on port %1</source>
        <translation>Das Gerät ist nicht an Port %1 zurückgekehrt</translation>
    </message>
    <message>
        <source>The device on port %1 runs %2, not %3</source>
        <translation>Das Gerät an Port %1 läuft mit %2, nicht mit %3</translation>
    </message>
    <message>
        <source>Time limit of %1 s reached</source>
        <translation>Zeitlimit von %1 s erreicht</translation>
    </message>
    <message>
        <source>Cannot write the history %1: %2</source>
        <translation>Der Verlauf %1 kann nicht geschrieben werden: %2</translation>
    </message>
    <message>
        <source>The prepared firmware changed: %1 is not the file that was checked</source>
        <translation>Die vorbereitete Firmware hat sich geändert: %1 ist nicht die geprüfte Datei</translation>
    </message>
    <message>
        <source>Another device is on the port %1: serial %2, not %3</source>
        <translation>Ein anderes Gerät ist am Port %1: Seriennummer %2, nicht %3</translation>
    </message>
</context>
<context>
    <name>HistoryModel</name>
    <message>
        <source>sent</source>
        <translation>gesendet</translation>
    </message>
    <message>
        <source>not yet</source>
        <translation>noch nicht</translation>
    </message>
    <message>
        <source>not sent</source>
        <translation>nicht gesendet</translation>
    </message>
    <message>
        <source>Taken by the central record on %1</source>
        <translation>Von der zentralen Erfassung übernommen am %1</translation>
    </message>
    <message>
        <source>No central record is set up on this PC.</source>
        <translation>Auf diesem PC ist keine zentrale Erfassung eingerichtet.</translation>
    </message>
    <message>
        <source>flashed</source>
        <translation>geflasht</translation>
    </message>
    <message>
        <source>recovered</source>
        <translation>wiederhergestellt</translation>
    </message>
    <message>
        <source>already current</source>
        <translation>bereits aktuell</translation>
    </message>
    <message>
        <source>failed</source>
        <translation>fehlgeschlagen</translation>
    </message>
    <message>
        <source>stopped</source>
        <translation>abgebrochen</translation>
    </message>
    <message>
        <source>running</source>
        <translation>läuft</translation>
    </message>
    <message>
        <source>interrupted</source>
        <translation>unterbrochen</translation>
    </message>
    <message>
        <source>end not recorded</source>
        <translation>Ende nicht erfasst</translation>
    </message>
    <message>
        <source>Started</source>
        <translation>Beginn</translation>
    </message>
    <message>
        <source>Serial</source>
        <translation>Seriennummer</translation>
    </message>
    <message>
        <source>Before</source>
        <translation>Vorher</translation>
    </message>
    <message>
        <source>After</source>
        <translation>Nachher</translation>
    </message>
    <message>
        <source>Outcome</source>
        <translation>Ergebnis</translation>
    </message>
    <message>
        <source>Program</source>
        <translation>Programm</translation>
    </message>
    <message>
        <source>Central record</source>
        <translation>Zentrale Erfassung</translation>
    </message>
</context>
<context>
    <name>HistoryReader</name>
    <message>
        <source>There is no history at %1</source>
        <translation>Unter %1 gibt es keinen Verlauf</translation>
    </message>
</context>
<context>
    <name>HistoryView</name>
    <message>
        <source>Flash history</source>
        <translation>Flashverlauf</translation>
    </message>
    <message>
        <source>&amp;Serial:</source>
        <translation>&amp;Seriennummer:</translation>
    </message>
    <message>
        <source>Type or scan a serial number</source>
        <translation>Seriennummer tippen oder scannen</translation>
    </message>
    <message>
        <source>Export...</source>
        <translation>Exportieren...</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>Export flash history</source>
        <translation>Flashverlauf exportieren</translation>
    </message>
    <message>
        <source>CSV files (*.csv);;All files (*)</source>
        <translation>CSV-Dateien (*.csv);;Alle Dateien (*)</translation>
    </message>
    <message>
        <source>The flash history could not be exported to
%1

%2

A file that was there is left as it was.</source>
        <translation>Der Flashverlauf konnte nicht exportiert werden nach
%1

%2

Eine Datei, die dort war, bleibt unverändert.</translation>
    </message>
    <message>
        <source>Reading the history...</source>
        <translation>Der Verlauf wird gelesen...</translation>
    </message>
    <message>
        <source>No flashes recorded on this PC yet.</source>
        <translation>Auf diesem PC ist noch kein Flashvorgang erfasst.</translation>
    </message>
    <message>
        <source>The history cannot be read: %1</source>
        <translation>Der Verlauf kann nicht gelesen werden: %1</translation>
    </message>
    <message>
        <source>1 flash recorded on this PC.</source>
        <translation>1 Flashvorgang auf diesem PC erfasst.</translation>
    </message>
    <message>
        <source>%1 flashes recorded on this PC.</source>
        <translation>%1 Flashvorgänge auf diesem PC erfasst.</translation>
    </message>
    <message>
        <source>The newest %1 of %2 flashes recorded on this PC are shown; the filter and the export take them all.</source>
        <translation>Die neuesten %1 von %2 auf diesem PC erfassten Flashvorgängen werden gezeigt; Filter und Export berücksichtigen alle.</translation>
    </message>
    <message>
        <source>No flash of the serial %1 is recorded on this PC.</source>
        <translation>Für die Seriennummer %1 ist auf diesem PC kein Flashvorgang erfasst.</translation>
    </message>
    <message>
        <source>1 flash of the serial %1 recorded on this PC.</source>
        <translation>1 Flashvorgang der Seriennummer %1 auf diesem PC erfasst.</translation>
    </message>
    <message>
        <source>%1 flashes of the serial %2 recorded on this PC.</source>
        <translation>%1 Flashvorgänge der Seriennummer %2 auf diesem PC erfasst.</translation>
    </message>
    <message>
        <source>The newest %1 of %2 flashes of the serial %3 are shown; the export takes them all.</source>
        <translation>Die neuesten %1 von %2 Flashvorgängen der Seriennummer %3 werden gezeigt; der Export berücksichtigt alle.</translation>
    </message>
    <message>
        <source>Exporting to %1...</source>
        <translation>Export nach %1...</translation>
    </message>
    <message>
        <source>1 flash exported to %1.</source>
        <translation>1 Flashvorgang nach %1 exportiert.</translation>
    </message>
    <message>
        <source>%1 flashes exported to %2.</source>
        <translation>%1 Flashvorgänge nach %2 exportiert.</translation>
    </message>
</context>
<context>
    <name>HttpRequester</name>
    <message>
        <source>Network Timeout Error</source>
        <translation>Zeitüberschreitung beim Verbindungsaufbau</translation>
    </message>
</context>
<context>
    <name>LicenseView</name>
    <message>
        <source>License</source>
        <translation>Lizenz</translation>
    </message>
</context>
<context>
    <name>MyMenu</name>
    <message>
        <source>Unable to open log file!</source>
        <translation>Protokolldatei kann nicht geöffnet werden!</translation>
    </message>
    <message>
        <source>Unable to open manual! %1</source>
        <translation>Handbuch kann nicht geöffnet werden! %1</translation>
    </message>
</context>
<context>
    <name>MySelectionList</name>
    <message>
        <source>Select...</source>
        <translation>Auswählen...</translation>
    </message>
    <message>
        <source>TextLabel</source>
        <translation>TextLabel</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>SWCheck</name>
    <message>
        <source>A software update is available but the checksum is invalid.</source>
        <translation>Eine Softwareaktualisierung ist verfügbar, aber die Prüfsumme ist ungültig.</translation>
    </message>
    <message>
        <source>A new version of %1 is available.
Upgrade is only possible if application
is not in automatic mode!</source>
        <translation>Eine neue Version von %1 ist verfügbar.
Eine Aktualisierung ist nur möglich, wenn die Anwendung
nicht im automatischen Modus läuft!</translation>
    </message>
    <message>
        <source>Failed to start FenUpdater!</source>
        <translation>FenUpdater konnte nicht gestartet werden!</translation>
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
    <message>
        <source>Failed to open resource</source>
        <translation>Ressource kann nicht geöffnet werden</translation>
    </message>
</context>
<context>
    <name>USBWriteThread</name>
    <message>
        <source>Writing firmware files</source>
        <translation>Firmware-Dateien werden geschrieben</translation>
    </message>
    <message>
        <source>Error in writing firmware files to USB</source>
        <translation>Fehler beim Schreiben der Firmware-Dateien auf USB</translation>
    </message>
    <message>
        <source>Building sys file lists...please wait</source>
        <translation>sys-Dateilisten werden erstellt...bitte warten</translation>
    </message>
    <message>
        <source>Copy files to destination failed.</source>
        <translation>Kopieren der Dateien zum Ziel fehlgeschlagen.</translation>
    </message>
    <message>
        <source>Writing completed:</source>
        <translation>Schreiben abgeschlossen:</translation>
    </message>
    <message>
        <source>
Please insert the USB Stick on Tessel NINE%1.
Start the device and activate flash mode on Tessel NINE%2. Flashing process should start automatically!

Note: If flashing process does not start automatically, the bootloader of Tessel NINE%3 might be too old.</source>
        <translation>
Bitte den USB-Stick in Tessel NINE%1 einstecken.
Das Gerät starten und den Flash-Modus von Tessel NINE%2 aktivieren. Der Flash-Vorgang sollte automatisch beginnen!

Hinweis: Beginnt der Flash-Vorgang nicht automatisch, ist der Bootloader von Tessel NINE%3 eventuell zu alt.</translation>
    </message>
</context>
<context>
    <name>WizardPageBootLoaderDownload</name>
    <message>
        <source>Download</source>
        <translation>Download</translation>
    </message>
    <message>
        <source>Download completed!</source>
        <translation>Download abgeschlossen!</translation>
    </message>
    <message>
        <source>Abort</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Search for latest boot loader at Zelko Update Server</source>
        <translation>Neuesten Boot Loader auf dem Zelko Update-Server suchen</translation>
    </message>
</context>
<context>
    <name>WizardPageBootLoaderSelect</name>
    <message>
        <source>Select the Tessel NINE® boot loader and firmware files and click &apos;Update&apos; to start the flashing process. After flashing click &apos;Finish&apos; to close the wizard.</source>
        <translation>Wählen Sie den Tessel NINE® Boot Loader und die Firmware-Dateien aus und klicken Sie auf &apos;Aktualisieren&apos;, um zu flashen. Danach schließt &apos;Abschließen&apos; den Assistenten.</translation>
    </message>
    <message>
        <source>Tessel NINE® boot loader and firmware file</source>
        <translation>Tessel NINE® Boot Loader und Firmware-Datei</translation>
    </message>
    <message>
        <source>Select...</source>
        <translation>Auswählen...</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Aktualisieren</translation>
    </message>
    <message>
        <source>Boot Loader Update</source>
        <translation>Boot Loader Aktualisierung</translation>
    </message>
    <message>
        <source>Status</source>
        <translation>Status</translation>
    </message>
    <message>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <source>Written</source>
        <translation>Geschrieben</translation>
    </message>
    <message>
        <source>Current Progress</source>
        <translation>Aktueller Fortschritt</translation>
    </message>
    <message>
        <source>Total Flashing Progress</source>
        <translation>Gesamtfortschritt</translation>
    </message>
    <message>
        <source>Time Remaining</source>
        <translation>Verbleibende Zeit</translation>
    </message>
    <message>
        <source>Select boot loader file</source>
        <translation>Boot Loader Datei auswählen</translation>
    </message>
    <message>
        <source>Select firmware file</source>
        <translation>Firmware-Datei auswählen</translation>
    </message>
    <message>
        <source>Selected file is no boot loader
file or does not exist!</source>
        <translation>Die ausgewählte Datei ist keine Boot Loader
Datei oder existiert nicht!</translation>
    </message>
    <message>
        <source>Selected Boot Loader version  </source>
        <translation>Ausgewählte Boot Loader Version  </translation>
    </message>
    <message>
        <source>Selected Firmware version       </source>
        <translation>Ausgewählte Firmware-Version       </translation>
    </message>
    <message>
        <source>Device is connected</source>
        <translation>Gerät ist verbunden</translation>
    </message>
    <message>
        <source>Connect</source>
        <translation>Verbinden</translation>
    </message>
    <message>
        <source>Abort</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Bytes written </source>
        <translation>Bytes geschrieben </translation>
    </message>
    <message>
        <source>KBytes written </source>
        <translation>KBytes geschrieben </translation>
    </message>
    <message>
        <source>The device waits in update mode: an earlier flash did not end</source>
        <translation>Gerät im Update-Modus: ein früheres Flashen endete nicht</translation>
    </message>
</context>
<context>
    <name>WizardPageBootStrapDownload</name>
    <message>
        <source>Start &apos;Download&apos; to get the latest Tessel NINE® boot loader and standard firmware from Zelko Update Server. After Download click &apos;Next&apos; to start flashing or &apos;Cancel&apos; to close the wizard.</source>
        <translation>Starten Sie &apos;Download&apos;, um den neuesten Tessel NINE® Boot Loader und die Standard-Firmware vom Zelko Update-Server zu laden. Danach mit &apos;Weiter&apos; flashen oder mit &apos;Abbrechen&apos; den Assistenten schließen.</translation>
    </message>
    <message>
        <source>Selected Directory</source>
        <translation>Ausgewähltes Verzeichnis</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>Download</translation>
    </message>
    <message>
        <source>Boot Loader Download</source>
        <translation>Boot Loader Download</translation>
    </message>
    <message>
        <source>Search for latest boot loader at Zelko Update Server</source>
        <translation>Neuesten Boot Loader auf dem Zelko Update-Server suchen</translation>
    </message>
    <message>
        <source>Download progress</source>
        <translation>Download-Fortschritt</translation>
    </message>
</context>
<context>
    <name>WizardPageBootStrapIntro</name>
    <message>
        <source>Flashing Tessel NINE® boot loader</source>
        <translation>Tessel NINE® Boot Loader flashen</translation>
    </message>
    <message>
        <source>&lt;p style=&quot;font-size:14pt; font-weight:bold&quot;&gt;Introduction to flashing Tessel NINE® Boot Loader&lt;/p&gt;
&lt;p style=&quot;font-size:10pt&quot;&gt;Please read the following introduction very carefully. Further information can be found in the manual.&lt;/p&gt;
&lt;p style=&quot;font-size:10pt&quot;&gt;After reading this information, select the checkbox and click &apos;Next&apos; to go to the option selection page or &apos;Cancel&apos; to finish the wizard.&lt;/p&gt;
&lt;p style=&quot;font-size:11pt; font-weight:bold&quot;&gt;Usage&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;Flashing the boot loader is not an everyday task. Go on only if you know what you are doing, and only if a) the device has a serious problem, or b) customer support recommends it.&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;The wizard offers two options: I) download the latest boot loader and the standard firmware, II) flash the boot loader together with the standard firmware.&lt;/p&gt;
&lt;p style=&quot;font-size:11pt; font-weight:bold&quot;&gt;Download&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;With a connection to the internet, the download option fetches the latest boot loader and the standard firmware from the Zelko Update Server. You can flash the files at once or keep them for later.&lt;/p&gt;
&lt;p style=&quot;font-size:11pt; font-weight:bold&quot;&gt;Flashing process&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;You reach the flashing by the flash option or right after a download. While flashing, &lt;b&gt;DO NOT&lt;/b&gt; disconnect the Tessel® and do not switch off its power unless the application tells you to. Use a PC, a USB port and a cable that are in good order and have not caused problems before.&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;If an error occurs and the process is not completed, the Tessel® will not start again. Then contact customer support: the Tessel® has to go back to the manufacturer for a factory reset.&lt;/p&gt;</source>
        <translation>&lt;p style=&quot;font-size:14pt; font-weight:bold&quot;&gt;Einführung zum Flashen des Tessel NINE® Boot Loaders&lt;/p&gt;
&lt;p style=&quot;font-size:10pt&quot;&gt;Bitte lesen Sie die folgende Einführung sehr sorgfältig. Weitere Informationen finden Sie im Handbuch.&lt;/p&gt;
&lt;p style=&quot;font-size:10pt&quot;&gt;Wählen Sie nach dem Lesen das Kontrollkästchen aus und klicken Sie auf &apos;Weiter&apos;, um zur Auswahl der Optionen zu gelangen, oder auf &apos;Abbrechen&apos;, um den Assistenten zu beenden.&lt;/p&gt;
&lt;p style=&quot;font-size:11pt; font-weight:bold&quot;&gt;Verwendung&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;Das Flashen des Boot Loaders ist kein alltäglicher Vorgang. Fahren Sie nur fort, wenn Sie wissen, was Sie tun, und nur wenn a) das Gerät ein ernstes Problem hat oder b) der Kundendienst es empfiehlt.&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;Der Assistent bietet zwei Möglichkeiten: I) den neuesten Boot Loader und die Standard-Firmware herunterladen, II) den Boot Loader zusammen mit der Standard-Firmware flashen.&lt;/p&gt;
&lt;p style=&quot;font-size:11pt; font-weight:bold&quot;&gt;Download&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;Mit einer Verbindung zum Internet lädt die Download-Option den neuesten Boot Loader und die Standard-Firmware vom Zelko Update-Server. Sie können die Dateien sofort flashen oder für später aufbewahren.&lt;/p&gt;
&lt;p style=&quot;font-size:11pt; font-weight:bold&quot;&gt;Flash-Vorgang&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;Zum Flashen gelangen Sie über die Flash-Option oder direkt nach einem Download. Trennen Sie während des Flashens den Tessel® &lt;b&gt;NICHT&lt;/b&gt; und schalten Sie ihn nicht aus, außer die Anwendung fordert Sie dazu auf. Verwenden Sie einen PC, einen USB-Anschluss und ein Kabel, die in Ordnung sind und noch keine Probleme bereitet haben.&lt;/p&gt;
&lt;p style=&quot;font-size:9pt&quot;&gt;Tritt ein Fehler auf und wird der Vorgang nicht abgeschlossen, startet der Tessel® nicht mehr. Wenden Sie sich dann an den Kundendienst: Der Tessel® muss zum Hersteller zurück und dort auf Werkseinstellungen zurückgesetzt werden.&lt;/p&gt;</translation>
    </message>
    <message>
        <source>I read the information</source>
        <translation>Ich habe die Informationen gelesen</translation>
    </message>
</context>
<context>
    <name>WizardPageBottStrapChoose</name>
    <message>
        <source>Choose an option and click the &apos;Next&apos; button.</source>
        <translation>Wählen Sie eine Option und klicken Sie auf &apos;Weiter&apos;.</translation>
    </message>
    <message>
        <source>Download</source>
        <translation>Download</translation>
    </message>
    <message>
        <source>If you are connected to the internet, you can download the latest version of Tessel NINE® boot loader and the latest version of standard Tessel NINE® firmware from Zelko Update Server.
After download, these files can immediately be used for flashing. It is also possible to use these files for later flashing processes.</source>
        <translation>Mit einer Internetverbindung können Sie die neueste Version des Tessel NINE® Boot Loaders und die neueste Standard-Firmware für Tessel NINE® vom Zelko Update-Server laden.
Nach dem Download können die Dateien sofort geflasht oder für spätere Flash-Vorgänge verwendet werden.</translation>
    </message>
    <message>
        <source>Flash</source>
        <translation>Flashen</translation>
    </message>
    <message>
        <source>Select a Tessel NINE® boot loader file and firmware files from local file system and start the flashing process. Be sure that you are using the latest version of Tessel NINE® boot loader.</source>
        <translation>Wählen Sie eine Tessel NINE® Boot Loader Datei und Firmware-Dateien im lokalen Dateisystem aus und starten Sie den Flash-Vorgang. Verwenden Sie die neueste Version des Tessel NINE® Boot Loaders.</translation>
    </message>
</context>
<context>
    <name>XMODEMthread</name>
    <message>
        <source>Flashing firmware</source>
        <translation>Firmware wird geflasht</translation>
    </message>
    <message>
        <source>Device not connected!</source>
        <translation>Gerät nicht verbunden!</translation>
    </message>
    <message>
        <source>No firmware file in directory</source>
        <translation>Keine Firmware-Datei im Verzeichnis</translation>
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
</context>
</TS>
