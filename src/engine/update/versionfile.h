#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

// The keys of an ini file's [General] group (keys before any group belong there too),
// by their lower-case names, so that a key is found whatever its case. A later line
// wins over an earlier one. A value is the text after "=", trimmed, up to a ";" that
// starts a comment, without the double quotes around it.
QHash<QString, QString> parseIniGeneral(const QByteArray &bytes);
