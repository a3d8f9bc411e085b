#pragma once

#include "app/errortexts.h"
#include "app/searchoptions.h"

#include <QDialog>

class Settings;

// The program's one window.
class Dialog : public QDialog
{
    Q_OBJECT
public:
    Dialog(SearchOptions options, bool dfuMissing, QWidget *parent);
    ~Dialog() override;

    Settings *getSettings() const { return settings; }

public slots:
    void handleSettingError();

private:
    Settings *settings = nullptr;
    bool dfuMissing = false;
    SearchOptions options;
};
