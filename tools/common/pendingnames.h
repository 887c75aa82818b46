#ifndef PENDINGNAMES_H
#define PENDINGNAMES_H

#include <QByteArray>
#include <QList>

#include <csignal>
#include <sys/types.h>

/**
 * \brief The names of temporary files that a signal must not leave behind.
 *
 * A temporary has a name only for a moment (between being linked into its
 * directory and the rename over the file it replaces), or for a run on a file
 * system that cannot create unnamed files. While it has one, it is listed
 * here, and the handler that installSignalCleanup() sets removes every listed
 * name before the signal takes its course. Several names may be pending at
 * once; the table is made for a signal handler, which may only unlink.
 */
namespace PendingNames {

/**
 * Lists \a name in the directory \a directory. Returns the slot to pass to
 * remove(), or -1 when all slots are taken or the name is too long.
 */
int add(int directory, const QByteArray &name);
/// Takes the name of \a slot off the list; the file is not touched.
void remove(int slot);

/**
 * Removes the pending names on every signal that ends the process and can be
 * caught, crashes included, then lets the signal take its course. Signals
 * that the caller set to be ignored (nohup, trap '' INT) stay ignored, and
 * so do those in \a handledElsewhere, which the program handles itself.
 * SIGXFSZ is ignored, so that a write beyond the file size limit fails with
 * EFBIG and is reported rather than killing the process.
 */
void installSignalCleanup(const QList<int> &handledElsewhere = {});

/// Names the process group of a command that runs for the tool, 0 for none: a signal that ends the
/// tool ends it too.
void setProcessGroup(pid_t group);

/// Holds back every signal while it exists, so that a name is listed as it comes to be.
class Blocker
{
public:
    Blocker();
    ~Blocker();

private:
    Q_DISABLE_COPY(Blocker)

    sigset_t m_previous;
};

} // namespace PendingNames

#endif
