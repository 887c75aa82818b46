#include "commandline.h"

#include "reportlog.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

namespace CommandLine {

int usageError(const QString &message)
{
    ReportLog::printError(message + QLatin1String(" (see '") + QCoreApplication::applicationName()
                          + QLatin1String(" --help')"));
    return UsageError;
}

bool parse(QCommandLineParser &parser, const QCommandLineOption &help,
           const QCommandLineOption &version, int &status)
{
    status = 0;
    if (!parser.parse(QCoreApplication::arguments())) {
        status = usageError(parser.errorText());
        return false;
    }
    if (parser.isSet(help)) {
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return false;
    }
    if (parser.isSet(version)) {
        std::printf("%s %s\n", QCoreApplication::applicationName().toLocal8Bit().constData(),
                    QCoreApplication::applicationVersion().toLocal8Bit().constData());
        return false;
    }
    return true;
}

} // namespace CommandLine
