// A firmware archive as it comes out of gpg: unpacked into a scratch folder. Its entries
// may name any path; none may land outside the folder or pass through a link there.
#include "fuzzsupport.h"

#include "firmware/zipextract.h"
#include "platform/platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {
QString scratch;

// What a folder holds, its links as links.
QStringList contents(const QString &folder)
{
    QStringList found;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        found << it.next();
    return found;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // In memory: the search writes thousands of archives a second.
    scratch = QDir(QFileInfo::exists(QStringLiteral("/dev/shm")) ? QStringLiteral("/dev/shm") : QDir::tempPath())
                  .filePath(QStringLiteral("morvanta-fuzz-zip-%1").arg(QCoreApplication::applicationPid()));
    Platform::removeTree(scratch);
    QDir().mkpath(scratch + QStringLiteral("/outside"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString archive = scratch + QStringLiteral("/package.zip");
    const QString out = scratch + QStringLiteral("/out");
    QDir().mkpath(out);
    // Links an earlier step might have left: one to a folder, one to a file, both outside.
    QFile::link(scratch + QStringLiteral("/outside"), out + QStringLiteral("/dir"));
    QFile::link(scratch + QStringLiteral("/outside/file"), out + QStringLiteral("/file"));
    QFile file(archive);
    FUZZ_ASSERT(file.open(QIODevice::WriteOnly) && file.write(reinterpret_cast<const char *>(data), qint64(size)) ==
                                                        qint64(size));
    file.close();

    const bool ok = unzipFile(archive, out);
    // The archive goes only when every entry was written.
    FUZZ_ASSERT(ok != QFileInfo::exists(archive));
    FUZZ_ASSERT(contents(scratch + QStringLiteral("/outside")).isEmpty());
    const QStringList top = QDir(scratch).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    FUZZ_ASSERT(top.size() == (ok ? 2 : 3));
    FUZZ_ASSERT(QFileInfo(out + QStringLiteral("/dir")).isSymLink() && QFileInfo(out + QStringLiteral("/file")).isSymLink());
    for (const QString &path : contents(out)) {
        const QFileInfo info(path);
        FUZZ_ASSERT(!info.isSymLink() || info.dir() == QDir(out));
    }

    FUZZ_ASSERT(Platform::removeTree(out));
    QFile::remove(archive);
    return 0;
}
