#pragma once

#include "app/userquestions.h"

class QWidget;

// The engine's questions as the window asks them: its question boxes, a folder dialog
// and the version list.
class WindowQuestions : public UserQuestions
{
public:
    explicit WindowQuestions(QWidget *parent) : parent(parent) {}

    bool confirmDownload(const QString &version, int option) override;
    bool confirmOverwriteFiles() override;
    QString chooseStoreFolder(const QString &caption) override;
    QObject *offerVersions(FileDownloader *downloader, const QStringList &versions, const QString &userIdentifier,
                           const QString &title, const QString &column) override;
    bool confirmUpgrade() override;

private:
    QWidget *parent;
};
