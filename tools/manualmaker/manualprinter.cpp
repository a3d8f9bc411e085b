#include "manualprinter.h"

#include <QFile>
#include <QPageLayout>
#include <QPageSize>
#include <QPdfWriter>
#include <QSaveFile>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextImageFormat>

namespace {

// QTextDocument lays out a printed page at the screen's 96 units per inch.
const qreal layoutUnitsPerPoint = 96.0 / 72.0;
const qreal printMarginPoints = 2 / 2.54 * 72;

} // namespace

ManualPrinter::ManualPrinter(const QString &languageCode, const QMap<QString, QImage> &pictures)
    : language(languageCode), pictures(pictures)
{
}

QByteArray ManualPrinter::metadata(const QString &title) const
{
    const QString xmp = QStringLiteral(
        "<?xpacket begin='' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
        "<x:xmpmeta xmlns:x='adobe:ns:meta/'>\n"
        "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
        "<rdf:Description rdf:about='' xmlns:dc='http://purl.org/dc/elements/1.1/'>\n"
        "<dc:title><rdf:Alt><rdf:li xml:lang='x-default'>%1</rdf:li></rdf:Alt></dc:title>\n"
        "<dc:language><rdf:Bag><rdf:li>%2</rdf:li></rdf:Bag></dc:language>\n"
        "<dc:format>application/pdf</dc:format>\n"
        "</rdf:Description>\n"
        "</rdf:RDF>\n"
        "</x:xmpmeta>\n"
        "<?xpacket end='w'?>");
    return xmp.arg(title.toHtmlEscaped(), language.toHtmlEscaped()).toUtf8();
}

bool ManualPrinter::print(const QString &textFile, const QString &pdfFile)
{
    QFile source(textFile);
    if (!source.open(QIODevice::ReadOnly)) {
        failure = textFile + QStringLiteral(": ") + source.errorString();
        return false;
    }
    QTextDocument document;
    document.setDefaultFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    for (auto it = pictures.cbegin(); it != pictures.cend(); ++it)
        document.addResource(QTextDocument::ImageResource, QUrl(it.key() + QStringLiteral(".png")), it.value());
    document.setHtml(QString::fromUtf8(source.readAll()));

    QSaveFile out(pdfFile);
    if (!out.open(QIODevice::WriteOnly)) {
        failure = pdfFile + QStringLiteral(": ") + out.errorString();
        return false;
    }
    QPdfWriter writer(&out);
    // QTextDocument::print keeps a margin of 2 cm itself.
    writer.setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait, QMarginsF()));
    const QString title = document.metaInformation(QTextDocument::DocumentTitle);
    writer.setTitle(title);
    writer.setCreator(QStringLiteral("Morvanta"));
    writer.setDocumentXmpMetadata(metadata(title));

    // Every picture the text names must exist, and none may be wider than the text.
    const qreal textWidth = (writer.pageLayout().paintRect(QPageLayout::Point).width() - 2 * printMarginPoints) *
                            layoutUnitsPerPoint;
    struct Placed {
        int position;
        int length;
        QTextImageFormat format;
    };
    QList<Placed> placed;
    QStringList used;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            QTextImageFormat image = fragment.charFormat().toImageFormat();
            if (!image.isValid())
                continue;
            const QString name = image.name().chopped(qMin<qsizetype>(4, image.name().size()));
            if (!image.name().endsWith(QLatin1String(".png")) || !pictures.contains(name)) {
                failure = QStringLiteral("the text names a picture that was not taken: ") + image.name();
                return false;
            }
            const QImage &picture = pictures[name];
            const QSizeF natural = QSizeF(picture.size()) / picture.devicePixelRatio();
            const qreal scale = qMin<qreal>(1.0, 0.75 * textWidth / natural.width());
            image.setWidth(natural.width() * scale);
            image.setHeight(natural.height() * scale);
            placed.append({fragment.position(), fragment.length(), image});
            used << name;
        }
    }
    for (const Placed &picture : placed) {
        QTextCursor cursor(&document);
        cursor.setPosition(picture.position);
        cursor.setPosition(picture.position + picture.length, QTextCursor::KeepAnchor);
        cursor.setCharFormat(picture.format);
    }
    for (auto it = pictures.cbegin(); it != pictures.cend(); ++it) {
        if (!used.contains(it.key())) {
            failure = QStringLiteral("the text shows no picture ") + it.key() + QStringLiteral(".png");
            return false;
        }
    }

    document.print(&writer);
    if (out.pos() == 0) {
        failure = pdfFile + QStringLiteral(": nothing was printed");
        return false;
    }
    if (!out.commit()) {
        failure = pdfFile + QStringLiteral(": ") + out.errorString();
        return false;
    }
    return true;
}
