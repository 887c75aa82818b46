#include "registrysource.h"

RegistrySource::~RegistrySource() = default;

bool RegistrySource::isReady() const
{
    return true;
}

void RegistrySource::start()
{
}

LocalRegistrySource::LocalRegistrySource(const LocalRegistry &registry, QObject *parent)
    : RegistrySource(parent)
    , m_registry(registry)
{
}

bool LocalRegistrySource::fill(Tessivane &registry, QString &error)
{
    if (m_registry.load(registry))
        return true;
    error = m_registry.errorString();
    return false;
}
