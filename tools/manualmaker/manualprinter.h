#pragma once

#include <QImage>
#include <QMap>
#include <QString>

// Turns a manual's text (the rich-text subset Qt reads) and its pictures into a PDF:
// A4, numbered pages, the pictures scaled to the text's width, the language declared
// in the document's metadata. The PDF appears whole or not at all.
class ManualPrinter
{
public:
    ManualPrinter(const QString &languageCode, const QMap<QString, QImage> &pictures);
    bool print(const QString &textFile, const QString &pdfFile);
    QString error() const { return failure; }

private:
    QByteArray metadata(const QString &title) const;

    QString language;
    QMap<QString, QImage> pictures;
    QString failure;
};
