#include "platform/platform.h"
#include "platform/singleinstance.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

class TestPlatform : public QObject
{
    Q_OBJECT
    QTemporaryDir base;

    QString usual() const { return base.path() + "/morvanta-" + QString::number(getuid()); }
    static mode_t modeOf(const QString &path)
    {
        struct stat st;
        lstat(QFile::encodeName(path).constData(), &st);
        return st.st_mode & 07777;
    }

private slots:
    void init()
    {
        QDir(usual()).removeRecursively();
        QFile::remove(usual());
        for (const QString &entry : QDir(base.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden))
            QDir(base.path() + "/" + entry).removeRecursively();
    }

    void freshFolderIsPrivate()
    {
        QCOMPARE(Platform::privateFolderIn(base.path()), usual());
        QVERIFY(QFileInfo(usual()).isDir());
        QCOMPARE(modeOf(usual()), mode_t(0700));
    }

    void ownFolderIsKeptAndClosed()
    {
        QVERIFY(QDir().mkdir(usual()));
        chmod(QFile::encodeName(usual()).constData(), 0755);
        QFile keep(usual() + "/logfile.txt");
        QVERIFY(keep.open(QIODevice::WriteOnly));
        keep.close();
        QCOMPARE(Platform::privateFolderIn(base.path()), usual());
        QCOMPARE(modeOf(usual()), mode_t(0700));
        QVERIFY(QFile::exists(usual() + "/logfile.txt"));
    }

    void unsafeFoldersAreRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("link to another folder") << "link";
        QTest::newRow("writable by others") << "open";
        QTest::newRow("a plain file") << "file";
        QTest::newRow("owned by another user") << "foreign";
    }

    void unsafeFoldersAreRefused()
    {
        QFETCH(QString, kind);
        const QString elsewhere = base.path() + "/elsewhere";
        QVERIFY(QDir().mkdir(elsewhere));
        if (kind == "link") {
            QVERIFY(QFile::link(elsewhere, usual()));
        } else if (kind == "open") {
            QVERIFY(QDir().mkdir(usual()));
            chmod(QFile::encodeName(usual()).constData(), 0777);
        } else if (kind == "file") {
            QFile file(usual());
            QVERIFY(file.open(QIODevice::WriteOnly));
        } else {
            if (getuid() != 0)
                QSKIP("needs root to hand a folder to another user");
            QVERIFY(QDir().mkdir(usual()));
            QCOMPARE(chown(QFile::encodeName(usual()).constData(), 65534, 65534), 0);
        }
        const QString chosen = Platform::privateFolderIn(base.path());
        QVERIFY2(chosen != usual(), qPrintable(chosen));
        QVERIFY(chosen.startsWith(usual() + "-"));
        QVERIFY(QFileInfo(chosen).isDir() && !QFileInfo(chosen).isSymLink());
        QCOMPARE(modeOf(chosen), mode_t(0700));
        QVERIFY(QDir(elsewhere).isEmpty());
    }

    void missingBaseGivesUncreatedPath()
    {
        const QString missing = base.path() + "/not/there";
        QCOMPARE(Platform::privateFolderIn(missing), missing + "/morvanta-" + QString::number(getuid()));
        QVERIFY(!QFileInfo::exists(missing));
    }

    void singleInstanceByKey()
    {
        qputenv("TMPDIR", QFile::encodeName(base.path()));
        auto first = std::make_unique<SingleInstance>("/some/folder");
        QVERIFY(first->acquire());
        SingleInstance second("/some/folder");
        QVERIFY(!second.acquire());
        SingleInstance other("/another/folder");
        QVERIFY(other.acquire());
        first.reset();
        QVERIFY(second.acquire());
    }
};

QTEST_GUILESS_MAIN(TestPlatform)
#include "tst_platform.moc"
