#include "localregistry.h"

#include "tessivane.h"
#include "tessivaneregistryfile.h"

#include <QProcessEnvironment>

bool LocalRegistry::load(Tessivane &registry)
{
    for (const QString &fileName : qAsConst(files)) {
        TessivaneRegistryFile file;
        if (!file.load(fileName, &registry)) {
            m_error = file.errorString();
            return false;
        }
    }
    if (includesEnvironment) {
        const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const QString &name : environment.keys())
            registry.set(QLatin1String("/env/") + name, environment.value(name));
    }
    for (const auto &value : qAsConst(values))
        registry.set(value.first, value.second);
    return true;
}

QString LocalRegistry::errorString() const
{
    return m_error;
}
