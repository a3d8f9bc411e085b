// The boxes of ErrorTexts: declared with its texts, defined here, where the widgets are.
#include "app/errortexts.h"

#include <QMessageBox>

void ErrorTexts::setupMessageBox(QMessageBox &box, errorLevel level, const QString &text)
{
    box.setWindowTitle(caption(level));
    // Paths, versions and tool output reach boxes: they are shown as the text they are.
    box.setTextFormat(Qt::PlainText);
    box.setText(text);
    switch (level) {
    case Error:
        box.setIcon(QMessageBox::Critical);
        break;
    case Warning:
        box.setIcon(QMessageBox::Warning);
        break;
    case Info:
    case Welcome:
        box.setIcon(QMessageBox::Information);
        break;
    }
}

void ErrorTexts::execMessageBox(errorLevel level, const QString &text)
{
    QMessageBox box;
    setupMessageBox(box, level, text);
    box.exec();
}
