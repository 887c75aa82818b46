#ifndef OUTPUTFILE_H
#define OUTPUTFILE_H

#include <QFile>

/**
 * \brief A QFile over a file descriptor whose every write is checked.
 *
 * QFile drops the rest of a short write and forgets a failed write at the
 * next one, so that a full disk may pass unnoticed. Here each write goes to
 * the descriptor until all of it is written. The first failure is kept with
 * its error number and every later write is dropped; a write never fails
 * towards its caller, so the engine renders on and the tool reports the
 * failure once, in its own words. The owner asks failure() before it puts the
 * output to use.
 *
 * \sa ReplacingFile
 */
class OutputFile : public QFile
{
public:
    OutputFile();
    ~OutputFile() override;

    /// Opens over \a descriptor for writing and takes it over: it is closed with the file.
    bool openDescriptor(int descriptor);
    /// The error number of the first failed write, 0 while every write succeeded.
    int failure() const;

protected:
    qint64 writeData(const char *data, qint64 size) override;

private:
    Q_DISABLE_COPY(OutputFile)

    int m_failure = 0;
};

/// Writes all of \a data to \a descriptor. Returns 0, or the error number of the failure.
int writeAll(int descriptor, const char *data, qint64 size);

#endif
