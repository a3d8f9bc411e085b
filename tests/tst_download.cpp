// Downloads from the update server: the reference PHP server over a tree of our own,
// and a difficult server for silent, broken and hostile answers. The program's
// deployment names 127.0.0.1:8418; this test runs in a network namespace of its own.
#include "app/settings.h"
#include "download/filedownloader.h"
#include "download/httprequester.h"
#include "ui/windowquestions.h"

#include "firmwarekit.h"
#include "windowsupport.h"

#include <QApplication>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QRegularExpression>
#include <QTest>
#include <QTreeWidget>

using TestSupport::ModalAnswerer;
using TestSupport::SignalLog;
using TestSupport::UpdateServer;

namespace {
const QString latest = "TesselNINE_Latest/Tessel_NINE_V1_2_4";
QString question(const QString &what, const QString &version)
{
    return "Do you want to download " + what + " with version " + version +
           "?\nPress 'Yes' to download or 'No' to cancel";
}
// Answers the expert list: OK on what it offers, or Cancel; records the offer.
QStringList answerList(int answer)
{
    for (QWidget *w : QApplication::topLevelWidgets()) {
        if (w->objectName() != "MySelectionList" || !w->isVisible())
            continue;
        QStringList offered;
        auto *list = w->findChild<QTreeWidget *>("fileList");
        for (int i = 0; i < list->topLevelItemCount(); ++i)
            offered << list->topLevelItem(i)->text(0);
        w->findChild<QPushButton *>(answer == 1 ? "buttonOK" : "buttonCancel")->click();
        return offered;
    }
    return {};
}
} // namespace

class TestDownload : public QObject
{
    Q_OBJECT
    TestSupport::Sandbox sandbox;
    TestSupport::FirmwareKit kit;
    QString tree;
    QString bigTree; // a released version big enough for a transfer to stall in
    std::unique_ptr<Settings> settings;
    WindowQuestions questions{nullptr}; // the window's boxes and dialogs, answered by ModalAnswerer

    void put(const QString &path) { TestSupport::writeFile(tree + "/" + path, "firmware"); }
    QString store(const QString &name)
    {
        const QString folder = sandbox.root() + "/store-" + name;
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
        return folder;
    }
    static QStringList filesIn(const QString &folder)
    {
        return QDir(folder).entryList(QDir::Files | QDir::Hidden);
    }

    // One request as the downloads make it: the answer, or "error:" and why.
    QString fetch(const QString &url)
    {
        HttpRequester http(settings.get(), nullptr);
        QSignalSpy done(&http, &HttpRequester::sigCommandFinished);
        http.get(QUrl(url));
        done.wait();
        return done.value(0).value(0).toBool() ? "error:" + done.value(0).value(1).toString()
                                               : QString::fromLatin1(http.getData());
    }

    struct Run {
        std::unique_ptr<FileDownloader> downloader;
        std::unique_ptr<SignalLog> log;
        QString outcome; // "finished:<names>" or "aborted:<text>"
    };
    // The run ended as the row says ("finished:" and names, or "aborted:" and a text),
    // and what arrived is the tree's, byte for byte, alone in the folder.
    void arrived(const Run &run, const QString &outcome, const QString &folder)
    {
        const QStringList names = outcome.startsWith("finished:") ? outcome.mid(9).split('|') : QStringList{};
        QCOMPARE(run.outcome, names.isEmpty() ? outcome : "finished:" + folder + "/" + names.join("|" + folder + "/"));
        QCOMPARE(filesIn(folder), names);
        for (const QString &name : names) {
            QDirIterator original(tree, {name}, QDir::Files, QDirIterator::Subdirectories);
            QVERIFY(original.hasNext());
            QCOMPARE(TestSupport::readFile(folder + "/" + name), TestSupport::readFile(original.next()));
        }
    }

    // Runs a download as the window does: on either abort signal the owner calls abortAll.
    void download(Run &run, FileDownloader::FirmwareDownloadOption option, const QString &user,
                  const QString &preset, int expertAnswer = -1, QStringList *offered = nullptr,
                  FileDownloader::Protocol protocol = FileDownloader::Http)
    {
        run.downloader =
            std::make_unique<FileDownloader>(nullptr, &questions, settings.get(), protocol, option, preset, user);
        run.log = std::make_unique<SignalLog>(run.downloader.get());
        FileDownloader *d = run.downloader.get();
        connect(d, &FileDownloader::sigFinished, this,
                [&run](const QStringList &files) { run.outcome = "finished:" + files.join('|'); });
        connect(d, qOverload<>(&FileDownloader::sigAbortDownload), this, [&run, d] {
            d->abortAll();
            run.outcome = "aborted:";
        });
        connect(d, qOverload<QString>(&FileDownloader::sigAbortDownload), this, [&run, d](const QString &text) {
            d->abortAll();
            run.outcome = "aborted:" + text;
        });
        d->download(false);
        QDeadlineTimer deadline(30000);
        while (run.outcome.isEmpty() && !deadline.hasExpired()) {
            QTest::qWait(50);
            if (expertAnswer >= 0) {
                const QStringList shown = answerList(expertAnswer);
                if (!shown.isEmpty() && offered)
                    *offered = shown;
            }
        }
        QTest::qWait(50);
    }

private slots:
    void initTestCase()
    {
        TestSupport::useSandbox(sandbox);
        settings = std::make_unique<Settings>(static_cast<QObject *>(nullptr));
        tree = sandbox.root() + "/tree";
        QDir().mkpath(tree + "/TesselNINE_Latest");
        QCOMPARE(kit.makePackage(tree + "/TesselNINE_Latest", "Tessel_NINE_V1_2_4", 2, 1, 4000, true).size(), 2);
        for (const char *name : {"Tessel_NINE_V1_2_5.OS.zip.gpg", "Tessel_NINE_V1_2_5.PR.zip.gpg",
                                 "Tessel_NINE_V1_3_0.OS.zip.gpg", "Tessel_NINE_V1_3_0.PR.zip.gpg",
                                 "Tessel_NINE_V1_3_2.OS.zip.gpg", "jdoe/Tessel_NINE_V1_3_1_D.OS.zip.gpg",
                                 "jdoe/Tessel_NINE_V1_3_1_D.PR.zip.gpg"})
            put("TesselNINE_Unstable/" + QLatin1String(name));
        put("TesselNINE_Bootloader/Tessel_NINE_V2_0_1.BL.zip.gpg");
        put("BRIO_MEL_Latest/BRIO_MEL_2_1.zkl");
        put("BRIO_MEL_Unstable/BRIO_MEL_2_2.zkl");
        put("BRIO_MEL_Unstable/BRIO_MEL_2_3.zkl");
        bigTree = sandbox.root() + "/big";
        for (const char *kind : {"OS", "PR"})
            QVERIFY(TestSupport::writeFile(bigTree + "/TesselNINE_Latest/Tessel_NINE_V9." + kind + ".zip.gpg",
                                           QByteArray(200000, 'x')));
    }

    void referenceServerAnswers_data()
    {
        QTest::addColumn<QString>("request"); // behind the base URL; DIGEST is the account's
        QTest::addColumn<QString>("answer");
        const QString account = "&User=zelko-devuser&PW=DIGEST";
        QTest::newRow("wrong password") << "getFileList.php?Folder=TesselNINE_Latest&User=zelko-devuser&PW=0" << "";
        QTest::newRow("folder climbing out") << "getFileList.php?Folder=TesselNINE_Unstable/.." + account << "";
        QTest::newRow("a file climbing out") << "BRIO_MEL_Latest/..%2F..%2Fserver/accounts.ini" << "error";
    }

    void referenceServerAnswers()
    {
        QFETCH(QString, request);
        UpdateServer server(tree);
        QVERIFY(server.isListening());
        request.replace("DIGEST", settings->getCredentialsQuery().section("PW=", 1));
        QTEST(fetch("http://127.0.0.1:8418/softwareupdate/" + request).section(':', 0, 0), "answer");
    }

    void downloads_data()
    {
        QTest::addColumn<int>("option");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QStringList>("setup"); // files put into the tree (+) or taken out (-) for this row
        QTest::addColumn<int>("expert");        // -1 no list, 1 OK on it, 0 Cancel
        QTest::addColumn<QString>("offered");
        QTest::addColumn<QStringList>("boxes");
        QTest::addColumn<QString>("outcome");
        const QString pair = "Tessel_NINE_V1_2_4.OS.zip.gpg|Tessel_NINE_V1_2_4.PR.zip.gpg";
        QTest::newRow("the released version") << 0 << "" << QStringList{} << -1 << ""
                                              << QStringList{question("firmware files", "1_2_4")} << "finished:" + pair;
        QTest::newRow("server on update")
            << 0 << "" << QStringList{"+TesselNINE_Latest/Tessel_NINE_V1_2_5.OS.zip.gpg",
                                      "+TesselNINE_Latest/Tessel_NINE_V1_2_5.PR.zip.gpg"}
            << -1 << "" << QStringList{} << "aborted:Server is currently on update!\nTry again later!";
        QTest::newRow("half a version") << 0 << "" << QStringList{"-" + latest + ".PR.zip.gpg"} << -1 << ""
                                        << QStringList{} << "aborted:No versions are available\nto download!";
        QTest::newRow("the boot loader") << 2 << "" << QStringList{} << -1 << ""
                                         << QStringList{question("boot loader file", "2_0_1")}
                                         << "finished:Tessel_NINE_V2_0_1.BL.zip.gpg";
        QTest::newRow("Brio Mel") << 3 << "" << QStringList{} << -1 << ""
                                  << QStringList{question("firmware file", "2_1")} << "finished:BRIO_MEL_2_1.zkl";
        QTest::newRow("expert: pairs only, newest first")
            << 1 << "" << QStringList{} << 1 << "Tessel_NINE_V1_3_0|Tessel_NINE_V1_2_5"
            << QStringList{question("firmware files", "1_3_0")}
            << "finished:Tessel_NINE_V1_3_0.OS.zip.gpg|Tessel_NINE_V1_3_0.PR.zip.gpg";
        QTest::newRow("expert: a user's folder") << 1 << "jdoe" << QStringList{} << 1 << "Tessel_NINE_V1_3_1_D"
                                                 << QStringList{question("firmware files", "1_3_1_D")}
                                                 << "finished:Tessel_NINE_V1_3_1_D.OS.zip.gpg|Tessel_NINE_V1_3_1_D.PR.zip.gpg";
        QTest::newRow("expert: list cancelled") << 4 << "" << QStringList{} << 0 << "BRIO_MEL_2_3|BRIO_MEL_2_2"
                                                << QStringList{} << "aborted:";
        QTest::newRow("expert: unknown user") << 1 << "nobody" << QStringList{} << -1 << ""
                                              << QStringList{"No versions are available\nin expert mode!"} << "aborted:";
    }

    void downloads()
    {
        QFETCH(int, option);
        QFETCH(QString, user);
        QFETCH(QStringList, setup);
        QFETCH(int, expert);
        for (const QString &change : setup)
            change.startsWith('+') ? put(change.mid(1)) : (void)QFile::rename(tree + "/" + change.mid(1), tree + "/x");
        UpdateServer server(tree);
        QVERIFY(server.isListening());
        ModalAnswerer answerer;
        answerer.plannedButtons = {QMessageBox::Yes};
        const QString folder = store(QTest::currentDataTag());
        Run run;
        QStringList offered;
        download(run, FileDownloader::FirmwareDownloadOption(option), user, folder, expert, &offered);
        for (const QString &change : setup)
            change.startsWith('+') ? (void)QFile::remove(tree + "/" + change.mid(1))
                                   : (void)QFile::rename(tree + "/x", tree + "/" + change.mid(1));
        QTEST(offered.join('|'), "offered");
        QStringList boxes = answerer.texts;
        for (const QString &message : run.log->of("sigMsgBox"))
            boxes << message.section(',', 1);
        QTEST(boxes, "boxes");
        QFETCH(QString, outcome);
        arrived(run, outcome, folder);
    }

    void filesAlreadyThere_data()
    {
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("overwriteAsked");
        QTest::addColumn<bool>("replaced");
        QTest::newRow("both there, No") << QStringList{"OS", "PR"} << int(QMessageBox::No) << true << false;
        QTest::newRow("both there, Yes") << QStringList{"OS", "PR"} << int(QMessageBox::Yes) << true << true;
        QTest::newRow("one there: no question") << QStringList{"PR"} << int(QMessageBox::No) << false << true;
    }

    void filesAlreadyThere()
    {
        QFETCH(QStringList, existing);
        QFETCH(int, answer);
        QFETCH(bool, replaced);
        UpdateServer server(tree);
        const QString folder = store("existing");
        for (const QString &kind : existing)
            QVERIFY(TestSupport::writeFile(folder + "/Tessel_NINE_V1_2_4." + kind + ".zip.gpg", "old"));
        ModalAnswerer answerer;
        answerer.plannedButtons = {QMessageBox::Yes, answer};
        Run run;
        download(run, FileDownloader::TesselNINELatest, QString(), folder);
        QTEST(answerer.texts.contains("Firmware files already\nexist in directory!\nDo you want to overwrite\nexisting files?"),
              "overwriteAsked");
        QCOMPARE(run.outcome.startsWith("finished:"), replaced);
        for (const QString &kind : existing)
            QCOMPARE(TestSupport::readFile(folder + "/Tessel_NINE_V1_2_4." + kind + ".zip.gpg") == "old", !replaced);
        QCOMPARE(filesIn(folder).size(), replaced ? 2 : existing.size());
    }

    void difficultServers_data()
    {
        QTest::addColumn<QString>("mode"); // "" for no server at all
        QTest::addColumn<QByteArray>("listAnswer");
        QTest::addColumn<QString>("outcome");
        const QByteArray pair = "Tessel_NINE_V9.OS.zip.gpg\nTessel_NINE_V9.PR.zip.gpg\n";
        QTest::newRow("nobody listening") << "" << QByteArray() << "aborted:Connection refused";
        QTest::newRow("HTTP error") << "status" << QByteArray() << "aborted:server replied: Internal Server Error";
        QTest::newRow("several megabytes") << "answer" << QByteArray(8 << 20, 'x') + "\n" + pair
                                           << "aborted:No versions are available\nto download!";
        QTest::newRow("only names that are paths")
            << "answer" << QByteArray("Tessel_NINE/../V9.OS.zip.gpg\nTessel_NINE\\V9.PR.zip.gpg\n")
            << "aborted:No versions are available\nto download!";
        QTest::newRow("file stalls midway") << "stall" << pair << "aborted:Network Timeout Error";
        QTest::newRow("markup and Windows line ends")
            << "answer" << QByteArray("<a href=\"x\">Tessel_NINE_V9.OS.zip.gpg</a> (3 kB)\r\n<li>Tessel_NINE_V9.PR.zip.gpg\r\n")
            << "finished:Tessel_NINE_V9.PR.zip.gpg";
        // A later name would be the newer version, were it read.
        QTest::newRow("a NUL ends the answer")
            << "answer" << pair + QByteArray("\0Tessel_NINE_V99.OS.zip.gpg\nTessel_NINE_V99.PR.zip.gpg\n", 55)
            << "finished:Tessel_NINE_V9.PR.zip.gpg";
        QTest::newRow("names in markup or with control characters")
            << "answer" << QByteArray("Tessel_NINE_V<font color=red size=6>9_9_9<!--.OS.zip.gpg\n"
                                      "Tessel_NINE_V<font color=red size=6>9_9_9<!--.PR.zip.gpg\n"
                                      "Tessel_NINE_V9\x1b[2J.OS.zip.gpg\nTessel_NINE_V9\x1b[2J.PR.zip.gpg\n")
            << "aborted:No versions are available\nto download!";
        QTest::newRow("a signed run passes plain zips by")
            << "answer" << "Tessel_NINE_V99.OS.zip\nTessel_NINE_V99.PR.zip\n" + pair << "finished:Tessel_NINE_V9.PR.zip.gpg";
    }

    void difficultServers()
    {
        QFETCH(QString, mode);
        QFETCH(QByteArray, listAnswer);
        QFETCH(QString, outcome);
        std::optional<UpdateServer> server;
        if (!mode.isEmpty())
            QVERIFY(server.emplace(mode, listAnswer).isListening());
        ModalAnswerer answerer;
        answerer.plannedButtons = {QMessageBox::Yes};
        const QString folder = store("difficult");
        Run run;
        download(run, FileDownloader::TesselNINELatest, QString(), folder);
        QVERIFY2(run.outcome.startsWith(outcome.section(':', 0, 0)) && run.outcome.contains(outcome.section(':', 1)),
                 qPrintable(run.outcome));
        QCOMPARE(filesIn(folder).size(), outcome.startsWith("finished") ? 2 : 0);
        // Nothing from outside reaches the log as a raw control character.
        const QString log = QString::fromUtf8(TestSupport::readFile(sandbox.root() + "/logfile.txt"));
        QVERIFY(!log.contains(QRegularExpression("[\\x00-\\x08\\x0b\\x0c\\x0e-\\x1f\\x7f]")));
    }

    // Ten seconds of silence end a request; a slow answer that keeps coming does not.
    void silenceNotLength()
    {
        UpdateServer server("trickle", "Tessel_NINE_V9.OS.zip.gpg\n");
        Run run;
        QElapsedTimer clock;
        clock.start();
        download(run, FileDownloader::TesselNINELatest, QString(), store("trickle"));
        QCOMPARE(run.outcome, QString("aborted:Network Timeout Error"));
        QVERIFY2(clock.elapsed() > 20000, qPrintable(QString::number(clock.elapsed())));
    }

    // The same over FTP, against pyftpdlib on port 21 and servers that fall silent.
    void ftp_data()
    {
        QTest::addColumn<int>("option");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("server"); // mode of the FTP server; "" for none, "badpass"
        QTest::addColumn<QString>("outcome");
        const QString pair = "Tessel_NINE_V1_2_4.OS.zip.gpg|Tessel_NINE_V1_2_4.PR.zip.gpg";
        QTest::newRow("the released version") << 0 << "" << "normal" << "finished:" + pair;
        QTest::newRow("expert, a user's folder") << 1 << "jdoe" << "normal"
                                                 << "finished:Tessel_NINE_V1_3_1_D.OS.zip.gpg|Tessel_NINE_V1_3_1_D.PR.zip.gpg";
        QTest::newRow("user folder missing") << 1 << "nobody" << "normal" << "aborted:Invalid User identifier";
        QTest::newRow("folder missing") << 0 << "" << "empty" << "aborted:Connected but\nunable to locate folder";
        QTest::newRow("wrong account") << 0 << "" << "badpass" << "aborted:Unable to login server";
        QTest::newRow("nobody listening") << 0 << "" << "" << "aborted:Unable to connect to server";
        QTest::newRow("silent server") << 0 << "" << "silent"
                                       << "aborted:Internet connection timeout!\nReconnect to internet and restart process";
        QTest::newRow("transfer stalls") << 0 << "" << "stall"
                                         << "aborted:Internet connection timeout!\nReconnect to internet and restart process";
        QTest::newRow("only names that are paths") << 2 << "" << "paths" << "aborted:No versions are available\nto download!";
    }

    void ftp()
    {
        QFETCH(int, option);
        QFETCH(QString, user);
        QFETCH(QString, server);
        QFETCH(QString, outcome);
        std::unique_ptr<UpdateServer> running;
        if (!server.isEmpty()) {
            const QString root = server == "empty" ? sandbox.root() + "/empty"
                                 : server == "stall"  ? bigTree
                                 : server == "paths"  ? sandbox.root() + "/paths"
                                                      : tree;
            if (server == "paths") // legal names on a server, but none a plain name of ours
                TestSupport::writeFile(root + "/TesselNINE_Bootloader/Tessel_NINE..BL.zip.gpg");
            QDir().mkpath(root);
            const QString password = server == "badpass" ? "wrong" : settings->getFtpPassword();
            running = UpdateServer::ftp(root, password, server == "stall" || server == "silent" ? server : "normal");
            QVERIFY(running->isListening());
        }
        ModalAnswerer answerer;
        answerer.plannedButtons = {QMessageBox::Yes};
        const QString folder = store("ftp");
        Run run;
        download(run, FileDownloader::FirmwareDownloadOption(option), user, folder, 1, nullptr, FileDownloader::Ftp);
        arrived(run, outcome, folder);
    }
};

QTEST_MAIN(TestDownload)
#include "tst_download.moc"
