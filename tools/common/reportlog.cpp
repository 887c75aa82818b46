#include "reportlog.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <cstdio>

namespace ReportLog {

namespace {

QByteArray s_prefix;
int s_strictFailures = 0;

// Whether \a report is the library's note that a lookup wrote its default
// value. A key that itself holds the words of that note could pass for one;
// keys are written by template authors, who are trusted with shell commands too.
bool isDefaultValueReport(const QString &report)
{
    static const QRegularExpression pattern(
        QStringLiteral("^WARNING .*/\\d+: Could not find regkey .*, but have default value\\. "
                       "writing default value .*\\z"),
        QRegularExpression::DotMatchesEverythingOption);
    return pattern.match(report).hasMatch();
}

void writeLine(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
}

void printMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg && !isDefaultValueReport(message))
        ++s_strictFailures;
    writeLine(s_prefix + message.toLocal8Bit() + '\n');
}

} // namespace

void install()
{
    qInstallMessageHandler(printMessage);
}

void setPrefix(const QByteArray &prefix)
{
    s_prefix = prefix;
}

int strictFailures()
{
    return s_strictFailures;
}

void resetCount()
{
    s_strictFailures = 0;
}

void printError(const QString &message)
{
    writeLine(QCoreApplication::applicationName().toLocal8Bit() + ": " + message.toLocal8Bit()
              + '\n');
}

} // namespace ReportLog
