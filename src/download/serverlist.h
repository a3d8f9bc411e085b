#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// The file names in a reply of the update server's list script: one name per line,
// from the first family prefix to the end of the first extension, whatever stands
// around it. A name that could point anywhere but into the folder is skipped.
QStringList parseFileList(const QByteArray &body, const QString &family, bool useZipSearch);

// A name from outside that can be used as a plain file name in a folder of ours.
bool isPlainFileName(const QString &name);
