#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The file names in a reply of the update server's list script: one name per line,
// from the first family prefix to the end of the first extension, whatever stands
// around it. A name that could point anywhere but into the folder is skipped.
QStringList parseFileList(const QByteArray &body, const QString &family, bool useZipSearch);

// The names of an FTP name list (NLST) that match the wildcard filter, such as
// "Tessel_NINE*zip.gpg": many servers refuse to filter a listing themselves.
QStringList parseFtpNameList(const QByteArray &listing, const QString &nameFilter);

// A name from outside that can be used as a plain file name in a folder of ours:
// letters, digits and "_ . + -" only, no "..", not starting with a dot.
bool isPlainFileName(const QString &name);
