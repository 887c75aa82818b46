#ifndef REGISTRYSOURCE_H
#define REGISTRYSOURCE_H

#include "localregistry.h"

#include <QObject>
#include <QString>

class Tessivane;

/**
 * \brief A place the sync cycle takes registry values from.
 *
 * Every cycle builds a registry afresh and asks each source, in the order of
 * precedence, to fill() it, so that every template of a cycle sees one
 * snapshot. A source that learns of changes by itself (a distributed store)
 * announces them with changed(); files are watched by the daemon.
 *
 * \sa SyncCycle
 */
class RegistrySource : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~RegistrySource() override;

    /// Stores the source's values in \a registry. Returns false, with \a error set, when it cannot
    /// be read.
    virtual bool fill(Tessivane &registry, QString &error) = 0;
    /// Whether fill() can serve: a source that is still connecting is not ready.
    virtual bool isReady() const;
    /// Starts following changes by itself; a source that cannot does nothing.
    virtual void start();

Q_SIGNALS:
    void changed();
};

/// The registry files and the environment, as [registry] names them.
class LocalRegistrySource : public RegistrySource
{
    Q_OBJECT

public:
    explicit LocalRegistrySource(const LocalRegistry &registry, QObject *parent = nullptr);

    bool fill(Tessivane &registry, QString &error) override;

private:
    LocalRegistry m_registry;
};

#endif
