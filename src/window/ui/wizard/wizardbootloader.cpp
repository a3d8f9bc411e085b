#include "wizardbootloader.h"

#include "wizardpagebootloaderchoose.h"
#include "wizardpagebootloaderdownload.h"
#include "wizardpagebootloaderintro.h"
#include "wizardpagebootloaderselect.h"

#include <QKeyEvent>

WizardBootLoader::WizardBootLoader(Settings *settings, bool automatic, const QString &presetBootLoaderFile,
                                   FileDownloader::Protocol protocol, bool useZipSearch, QWidget *parent)
    : QWizard(parent), settings(settings)
{
    auto *intro = new WizardPageBootLoaderIntro(this);
    auto *choose = new WizardPageBootLoaderChoose(settings, this);
    auto *download = new WizardPageBootLoaderDownload(settings, protocol, useZipSearch, this);
    auto *select = new WizardPageBootLoaderSelect(settings, automatic, presetBootLoaderFile, useZipSearch, this);
    connect(download, &WizardPageBootLoaderDownload::sendDownloadedFiles, select,
            &WizardPageBootLoaderSelect::receivedDownloadedFiles);
    if (automatic) {
        // The other pages live with the wizard but are not part of it.
        intro->hide();
        choose->hide();
        download->hide();
    } else {
        setPage(Intro, intro);
        setPage(Choose, choose);
        setPage(Download, download);
    }
    setPage(Select, select);
    setWindowFlags(Qt::WindowTitleHint | Qt::CustomizeWindowHint);
    setWizardStyle(QWizard::ClassicStyle);
    setOptions(QWizard::NoBackButtonOnStartPage);
    setFixedSize(450, 450);
}

void WizardBootLoader::keyPressEvent(QKeyEvent *event)
{
    // Escape must not cancel a boot loader update, nor Return press a button.
    if (event->key() == Qt::Key_Escape)
        event->ignore();
    else
        event->accept();
}
