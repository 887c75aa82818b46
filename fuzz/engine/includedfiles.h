#ifndef TESSIVANETEMPLATE_FUZZ_INCLUDEDFILES_H
#define TESSIVANETEMPLATE_FUZZ_INCLUDEDFILES_H

// The files that fuzzed templates may include: a.tmpl, b.tmpl and sub/b.tmpl
// in a directory of their own, which becomes the working directory, so that
// relative names in templates resolve against it.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <cstdlib>
#include <unistd.h>

// Writes \a content to \a path unless the file holds it already, so that runs
// side by side (-fork, -jobs) never see a file half rewritten.
inline void writeFixed(const QString &path, const char *content)
{
    QFile file(path);
    if (file.open(QIODevice::ReadOnly) && file.readAll() == content)
        return;
    file.close();
    if (!file.open(QIODevice::WriteOnly) || file.write(content) < 0)
        std::abort();
}

// Makes the directory \a name beside \a program, rather than in a temporary
// directory, which a crash would leave behind, and enters it.
inline void enterIncludedFiles(const char *program, const char *name, const char *included,
                               const char *nested)
{
    const QString path = QFileInfo(QFile::decodeName(program ? program : ".")).absolutePath()
        + QLatin1Char('/') + QLatin1String(name);
    if (!QDir().mkpath(path + QLatin1String("/sub")))
        std::abort();
    writeFixed(path + QLatin1String("/a.tmpl"), included);
    writeFixed(path + QLatin1String("/b.tmpl"), nested);
    writeFixed(path + QLatin1String("/sub/b.tmpl"), nested);
    if (::chdir(QFile::encodeName(path).constData()) != 0)
        std::abort();
}

#endif
