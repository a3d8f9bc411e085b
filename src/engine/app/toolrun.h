#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>

struct ToolResult {
    bool started = false;
    int exitCode = -1;
    bool crashed = false; // ended by a signal, ours included

    bool succeeded() const { return started && !crashed && exitCode == 0; }
};

// Runs a tool on the calling thread with standard output and error merged. Every
// chunk of output reaches onChunk on this thread, in order, before runTool returns,
// so a verdict taken afterwards has seen all of it. Setting *stop from another thread
// kills the tool within a fraction of a second.
ToolResult runTool(QProcess &process, const QString &quotedProgram, const QStringList &arguments,
                   const std::function<void(const QByteArray &)> &onChunk, const std::atomic<bool> *stop = nullptr,
                   int startTimeoutMs = 30000);

// The program named by a quoted tool path of Settings.
QString unquotedProgram(const QString &quotedProgram);

// Starts a tool whose text the program reads: in the C locale, with standard input
// closed at once.
void startTool(QProcess &process, const QString &quotedProgram, const QStringList &arguments);
