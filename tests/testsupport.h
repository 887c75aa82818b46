#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include "tessivanetemplate.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <ostream>

// Readable values in assertion failures.
void PrintTo(const QString &text, std::ostream *os);
void PrintTo(const QByteArray &bytes, std::ostream *os);
void PrintTo(const QStringList &list, std::ostream *os);

/**
 * Records every Qt message while it exists and puts the previous handler back
 * when it goes. Only one may exist at a time.
 */
class MessageRecorder
{
public:
    MessageRecorder();
    ~MessageRecorder();

    QStringList warnings() const { return m_warnings; }
    QStringList debugs() const { return m_debugs; }
    void clear();

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message);

    QtMessageHandler m_previous;
    QStringList m_warnings;
    QStringList m_debugs;
};

/// What one template run produced.
struct Rendered
{
    int result = -1;
    QByteArray output;
    QStringList warnings;
    QStringList debugs;
};

/**
 * Runs \a templateText through \a engine as the template named \a name (the
 * name reports print) and returns the output bytes and the messages.
 */
Rendered render(TessivaneTemplate &engine, const QByteArray &templateText,
                const QString &name = QStringLiteral("in.tmpl"));

/// Writes \a bytes to \a path, creating the file; fails the test on error.
void writeFile(const QString &path, const QByteArray &bytes);
/// The whole content of \a path; empty when it cannot be read.
QByteArray readFile(const QString &path);

#endif
