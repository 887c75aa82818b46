#ifndef SYNCCYCLE_H
#define SYNCCYCLE_H

#include "syncconfiguration.h"

#include <QList>
#include <QStringList>

#include <csignal>

class RegistrySource;
class ReplacingFile;
class Tessivane;

/// What one cycle came to.
struct CycleResult
{
    bool isRegistryRead = true; // false: no source could be read, nothing was rendered
    int failed = 0; // templates, checks and reloads that failed
    int changed = 0; // destinations replaced, or that would be under a dry run
    int unchanged = 0;
};

/**
 * \brief One pass over the templates: render, check, replace, reload.
 *
 * Every selected template is rendered from one registry snapshot into a
 * temporary beside its destination (ReplacingFile, with every guarantee of
 * the safe write). A template fails on a newer template version, on a read
 * or write error, and under its strictness on any warning but a registry
 * default; then its check runs on the staged file, and only then does the
 * staged file replace the destination, unless the destination already holds
 * the same bytes and attributes. A failed template leaves its destination as
 * it was; the others go on. After all templates, each distinct reload
 * command of a changed template runs once, in the order of the configuration.
 * Every log line names its template.
 *
 * \sa SyncConfiguration, RegistrySource, ReplacingFile
 */
class SyncCycle
{
public:
    SyncCycle(const SyncConfiguration &configuration, const QList<RegistrySource *> &sources);

    /// The sources that \a configuration names, in their order of precedence, children of
    /// \a parent. Its single values are not among them: every cycle applies them over all.
    static QList<RegistrySource *> sourcesFor(const SyncConfiguration &configuration,
                                              QObject *parent);

    /// Renders and checks, writes nothing and reloads nothing, and prints a unified diff of
    /// every destination that would change on standard output.
    void setDryRun(bool isDryRun);
    /// Only the templates named; all when empty.
    void setSelection(const QStringList &names);
    /// Templates whose reload failed before: it runs again, whether or not they change.
    void setFailedReloads(const QStringList &names);
    /// The templates whose reload failed in the last run.
    QStringList failedReloads() const;
    /// Runs one cycle. When \a stopRequested becomes non-zero, no further template is begun.
    CycleResult run(const volatile sig_atomic_t *stopRequested);

private:
    bool readRegistry(Tessivane &registry);
    bool renderTemplate(const TemplateSettings &settings, Tessivane &registry, bool &isChanged);
    bool render(const TemplateSettings &settings, Tessivane &registry, ReplacingFile &output);
    bool runCheck(const TemplateSettings &settings, ReplacingFile &output);
    bool showDifference(const TemplateSettings &settings, ReplacingFile &output);
    int runReloads(const QList<const TemplateSettings *> &reloads);

    const SyncConfiguration &m_configuration;
    QList<RegistrySource *> m_sources;
    bool m_isDryRun = false;
    QStringList m_selection;
    QStringList m_failedReloads;
    const volatile sig_atomic_t *m_stopRequested = nullptr;
};

/// Logs "PROGRAM: NAME: MESSAGE", a line for each line of \a message.
void logEvent(const QString &name, const QString &message);

#endif
