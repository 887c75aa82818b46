#include "outputfile.h"

#include <cerrno>
#include <unistd.h>

int writeAll(int descriptor, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size_t(size));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        // A write that takes nothing and reports nothing would loop forever.
        if (written == 0)
            return EIO;
        data += written;
        size -= written;
    }
    return 0;
}

OutputFile::OutputFile() = default;

OutputFile::~OutputFile() = default;

bool OutputFile::openDescriptor(int descriptor)
{
    return open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered,
                QFileDevice::AutoCloseHandle);
}

int OutputFile::failure() const
{
    return m_failure;
}

qint64 OutputFile::writeData(const char *data, qint64 size)
{
    if (m_failure == 0)
        m_failure = writeAll(handle(), data, size);
    return size;
}
