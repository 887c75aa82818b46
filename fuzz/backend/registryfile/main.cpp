// Parses arbitrary registry files in both formats. The first byte picks the
// format, so that one corpus serves the JSON reader and the line reader.

#include "tessivaneregistryfile.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const QByteArray data =
        QByteArray::fromRawData(reinterpret_cast<const char *>(bytes), int(size));
    const bool isJson = size > 0 && (bytes[0] == '{' || bytes[0] & 1);
    const QString fileName = isJson ? QStringLiteral("fuzz.JSON") : QStringLiteral("fuzz.conf");

    TessivaneRegistryFile file;
    const bool isOk = file.parse(fileName, data);
    // All or nothing: a failure names the file and keeps no value, a success
    // leaves no error behind.
    if (isOk != file.errorString().isEmpty())
        std::abort();
    if (!isOk && (!file.values().isEmpty() || !file.errorString().startsWith(fileName)))
        std::abort();
    for (const auto &entry : file.values()) {
        if (entry.first.isEmpty())
            std::abort();
    }
    return 0;
}
