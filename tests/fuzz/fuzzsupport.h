#pragma once

#include <QByteArray>
#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// A broken promise is a finding: libFuzzer keeps the input that led to it.
#define FUZZ_ASSERT(condition)                                                                           \
    do {                                                                                                 \
        if (!(condition)) {                                                                              \
            std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition);           \
            std::abort();                                                                                \
        }                                                                                                \
    } while (0)

namespace fuzz {

// The parsers log what they read; millions of log lines would only slow the search.
inline const QtMessageHandler quietLog =
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A tool's output as the reader gets it: in chunks, here cut at every 0xff byte.
inline QList<QByteArray> chunks(const QByteArray &input)
{
    return input.split('\xff');
}

// A name that can only be a plain file name in a folder of ours.
inline bool isPlainName(const QString &name)
{
    static const QRegularExpression allowed(QStringLiteral("^[A-Za-z0-9_.+-]+$"));
    return allowed.match(name).hasMatch() && !name.contains(QLatin1String("..")) && !name.startsWith(QLatin1Char('.'));
}

} // namespace fuzz
