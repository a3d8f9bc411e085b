#pragma once

#include "flasherror.h"
#include "flashtypes.h"

#include <QCoreApplication>
#include <QString>

// The words of a flash, in the user's language: made from the job's stages and errors by
// whichever front end shows them (the window's labels and boxes, the station's lines,
// the history's record), so each sentence is written once.
class FlashTexts
{
    Q_DECLARE_TR_FUNCTIONS(FlashTexts)
public:
    // The status line of a stage; empty for the stages a front end words itself.
    static QString stage(FlashStage stage);
    // "Flashing firmware stage #1 - File 2/5"
    static QString transfer(const QString &stage, int number, int total);
    // The box that ends a good flash of the window.
    static QString completedBox();

    // What went wrong, in one sentence: the status line, the log, the record.
    static QString error(const FlashError &error);
    // What a box (or a console) says of it: for a package, its own words; for the tool,
    // the sentence inside the general "Flashing not completed" text; else the sentence.
    static QString errorBox(const FlashError &error);
    // A DFU status code (0 to 15) as dfu-util words it; empty for any other number.
    static QString dfuStatus(int status);

private:
    static QString toolError(const FlashError &error);
    static QString corruptedFiles();
};
