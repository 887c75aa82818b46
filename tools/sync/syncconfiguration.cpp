#include "syncconfiguration.h"

#include "qtcompat_p.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QSslCertificate>
#include <QSslKey>
#include <QUrl>

#include <toml++/toml.h>

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <functional>
#include <initializer_list>

namespace {

// A configuration file is small; one larger than this is a mistake.
const qint64 s_largestFile = 16 << 20;

QString fromStd(std::string_view text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

// Reads the values of one configuration file. The first value that is wrong
// sets the error, naming the file, the line and column, and the key.
class TomlReader
{
public:
    explicit TomlReader(const QString &fileName)
        : m_fileName(fileName)
        , m_directory(QFileInfo(fileName).absoluteDir())
    {
    }

    QString error;

    QString origin(const toml::source_region &where) const
    {
        return m_fileName + QLatin1Char(':') + QString::number(where.begin.line);
    }

    bool fail(const toml::source_region &where, const QString &key, const QString &reason)
    {
        error = QStringLiteral("%1:%2:%3: %4: %5")
                    .arg(m_fileName, QString::number(where.begin.line),
                         QString::number(where.begin.column), key, reason);
        return false;
    }

    // Unknown keys are errors: a misspelt "relaod" must not pass unnoticed.
    bool onlyKnown(const toml::table &table, const QString &section,
                   std::initializer_list<const char *> known)
    {
        for (auto &&[key, value] : table) {
            bool isKnown = false;
            for (const char *name : known)
                isKnown = isKnown || key.str() == name;
            if (!isKnown)
                return fail(key.source(), section + fromStd(key.str()),
                            QStringLiteral("unknown key"));
        }
        return true;
    }

    bool string(const toml::table &table, const QString &section, const char *key, QString &out)
    {
        const toml::node *node = table.get(key);
        if (!node)
            return true;
        if (!node->is_string())
            return fail(node->source(), section + QLatin1String(key),
                        QStringLiteral("expected a string"));
        out = fromStd(node->as_string()->get());
        return true;
    }

    bool path(const toml::table &table, const QString &section, const char *key, QString &out)
    {
        QString text;
        if (!string(table, section, key, text))
            return false;
        if (!text.isEmpty())
            out = absolute(text);
        return true;
    }

    // The engine's settings are 8-bit: anything beyond Latin-1 would be changed.
    bool latin1(const toml::table &table, const QString &section, const char *key, QByteArray &out)
    {
        QString text;
        if (!table.get(key))
            return true;
        if (!string(table, section, key, text))
            return false;
        out = text.toLatin1();
        if (TessivaneTemplatePrivate::fromLatin1(out) == text)
            return true;
        return fail(table.get(key)->source(), section + QLatin1String(key),
                    QStringLiteral("takes Latin-1 text only"));
    }

    bool boolean(const toml::table &table, const QString &section, const char *key, bool &out)
    {
        const toml::node *node = table.get(key);
        if (!node)
            return true;
        if (!node->is_boolean())
            return fail(node->source(), section + QLatin1String(key),
                        QStringLiteral("expected true or false"));
        out = node->as_boolean()->get();
        return true;
    }

    // "200ms", "30s", "5m", "1h".
    bool duration(const toml::table &table, const QString &section, const char *key, int &ms)
    {
        QString text;
        if (!string(table, section, key, text))
            return false;
        if (text.isEmpty())
            return true;
        static const QRegularExpression pattern(QStringLiteral("^(\\d{1,7})(ms|s|m|h)$"));
        const QRegularExpressionMatch match = pattern.match(text);
        if (!match.hasMatch())
            return fail(table.get(key)->source(), section + QLatin1String(key),
                        QStringLiteral("expected a duration such as \"200ms\", \"30s\" or \"5m\""));
        const qint64 unit = match.captured(2) == QLatin1String("ms") ? 1
            : match.captured(2) == QLatin1String("s")                ? 1000
            : match.captured(2) == QLatin1String("m")                ? 60000
                                                                     : 3600000;
        const qint64 value = match.captured(1).toLongLong() * unit;
        if (value > 24 * 3600000)
            return fail(table.get(key)->source(), section + QLatin1String(key),
                        QStringLiteral("longer than a day"));
        ms = int(value);
        return true;
    }

    bool stringArray(const toml::table &table, const QString &section, const char *key,
                     QStringList &out, bool arePaths)
    {
        const toml::node *node = table.get(key);
        if (!node)
            return true;
        const toml::array *array = node->as_array();
        if (!array)
            return fail(node->source(), section + QLatin1String(key),
                        QStringLiteral("expected an array of strings"));
        for (const toml::node &element : *array) {
            if (!element.is_string())
                return fail(element.source(), section + QLatin1String(key),
                            QStringLiteral("expected a string"));
            const QString text = fromStd(element.as_string()->get());
            out << (arePaths ? absolute(text) : text);
        }
        return true;
    }

    bool stringTable(const toml::table &table, const QString &section, const char *key,
                     QList<QPair<QString, QString>> &out)
    {
        const toml::node *node = table.get(key);
        if (!node)
            return true;
        const toml::table *values = node->as_table();
        if (!values)
            return fail(node->source(), section + QLatin1String(key),
                        QStringLiteral("expected a table"));
        for (auto &&[name, value] : *values) {
            if (!value.is_string())
                return fail(value.source(),
                            section + QLatin1String(key) + QLatin1Char('.') + fromStd(name.str()),
                            QStringLiteral("expected a string"));
            out.append(qMakePair(fromStd(name.str()), fromStd(value.as_string()->get())));
        }
        return true;
    }

    QString directory() const { return m_directory.absolutePath(); }

private:
    // A path in the configuration is relative to the configuration file.
    QString absolute(const QString &path) const
    {
        return QDir::cleanPath(m_directory.absoluteFilePath(path));
    }

    QString m_fileName;
    QDir m_directory;
};

// A user or group given by name or by number.
template<typename Id, typename Lookup>
bool principal(TomlReader &reader, const toml::table &table, const char *key, Id &id, Lookup lookup)
{
    const toml::node *node = table.get(key);
    if (!node)
        return true;
    const QString name = QLatin1String("template.") + QLatin1String(key);
    if (const auto *number = node->as_integer()) {
        if (number->get() < 0 || number->get() > 0x7FFFFFFF)
            return reader.fail(node->source(), name, QStringLiteral("not a valid id"));
        id = Id(number->get());
        return true;
    }
    if (!node->is_string())
        return reader.fail(node->source(), name, QStringLiteral("expected a name or a number"));
    const std::string text(node->as_string()->get());
    // Digits alone are an id, as chown(1) takes them.
    bool isNumber = false;
    const uint number = fromStd(text).toUInt(&isNumber, 10);
    if (isNumber && !text.empty() && text[0] != '+' && number <= 0x7FFFFFFF) {
        id = Id(number);
        return true;
    }
    if (!lookup(text.c_str(), id))
        return reader.fail(node->source(), name,
                           QLatin1String("no such ") + QLatin1String(key) + QLatin1String(" '")
                               + fromStd(text) + QLatin1Char('\''));
    return true;
}

bool lookUpUser(const char *name, uid_t &id)
{
    const struct passwd *entry = ::getpwnam(name);
    if (entry)
        id = entry->pw_uid;
    return entry;
}

bool lookUpGroup(const char *name, gid_t &id)
{
    const struct group *entry = ::getgrnam(name);
    if (entry)
        id = entry->gr_gid;
    return entry;
}

// "0640" as a string of octal digits, or a TOML octal integer 0o640. A plain
// integer would be read in decimal, 640 giving 01200: it is refused.
bool fileMode(TomlReader &reader, const toml::table &table, int &mode)
{
    const toml::node *node = table.get("mode");
    if (!node)
        return true;
    static const QRegularExpression digits(QStringLiteral("^[0-7]{3,4}$"));
    qint64 value = -1;
    if (const auto *number = node->as_integer()) {
        if (!!(number->flags() & toml::value_flags::format_as_octal))
            value = number->get();
    } else if (node->is_string() && digits.match(fromStd(node->as_string()->get())).hasMatch()) {
        value = fromStd(node->as_string()->get()).toInt(nullptr, 8);
    }
    if (value >= 0 && value <= 07777) {
        mode = int(value);
        return true;
    }
    return reader.fail(node->source(), QStringLiteral("template.mode"),
                       QStringLiteral("expected octal permission bits such as \"0640\""));
}

bool readTemplate(TomlReader &reader, const toml::table &table, TemplateSettings &settings)
{
    const QString section = QStringLiteral("template.");
    settings.origin = reader.origin(table.source());
    if (!reader.onlyKnown(table, section,
                          {"name", "source", "destination", "root", "tags", "comment_prefix",
                           "comment_suffix", "language", "strict", "mode", "owner", "group",
                           "check", "reload", "timeout"})
        || !reader.string(table, section, "name", settings.name)
        || !reader.path(table, section, "source", settings.source)
        || !reader.path(table, section, "destination", settings.destination)
        || !reader.latin1(table, section, "root", settings.root)
        || !reader.stringTable(table, section, "tags", settings.tags)
        || !reader.latin1(table, section, "comment_prefix", settings.commentPrefix)
        || !reader.latin1(table, section, "comment_suffix", settings.commentSuffix)
        || !reader.boolean(table, section, "strict", settings.isStrict)
        || !fileMode(reader, table, settings.mode)
        || !principal(reader, table, "owner", settings.owner, lookUpUser)
        || !principal(reader, table, "group", settings.group, lookUpGroup)
        || !reader.string(table, section, "check", settings.check)
        || !reader.string(table, section, "reload", settings.reload)
        || !reader.duration(table, section, "timeout", settings.timeoutMs))
        return false;
    if (const toml::node *language = table.get("language")) {
        const auto *number = language->as_integer();
        if (!number || (number->get() != 1 && number->get() != 2))
            return reader.fail(language->source(), QStringLiteral("template.language"),
                               QStringLiteral("expected 1 or 2"));
        settings.language = int(number->get());
    }
    for (const char *required : {"source", "destination"}) {
        const toml::node *node = table.get(required);
        if (!node || (node->is_string() && node->as_string()->get().empty()))
            return reader.fail(node ? node->source() : table.source(),
                               section + QLatin1String(required), QStringLiteral("missing"));
    }
    if (settings.timeoutMs <= 0)
        return reader.fail(table.get("timeout")->source(), QStringLiteral("template.timeout"),
                           QStringLiteral("must be longer than 0"));
    settings.directory = reader.directory();
    if (settings.name.isEmpty())
        settings.name = settings.destination;
    return true;
}

QString readWhole(const QString &path, QByteArray &data)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return file.errorString();
    data = file.read(s_largestFile + 1);
    if (file.error() != QFileDevice::NoError)
        return file.errorString();
    return data.size() > s_largestFile ? QStringLiteral("larger than 16 MiB") : QString();
}

// The password and the TLS files are read with the configuration, so that a
// missing or wrong one stops the start and a reload keeps the configuration
// in use, rather than failing every connection later.
bool readEtcdFile(TomlReader &reader, const toml::table &table, const char *key,
                  const QString &path, const std::function<QString(const QByteArray &)> &take)
{
    if (path.isEmpty())
        return true;
    QByteArray data;
    QString problem = readWhole(path, data);
    if (problem.isEmpty())
        problem = take(data);
    return problem.isEmpty()
        || reader.fail(table.get(key)->source(), QLatin1String("etcd.") + QLatin1String(key),
                       path + QLatin1String(": ") + problem);
}

bool readEtcdFiles(TomlReader &reader, const toml::table &table, EtcdSettings &etcd)
{
    const auto certificates = [](QList<QSslCertificate> &out) {
        return [&out](const QByteArray &data) {
            out = QSslCertificate::fromData(data, QSsl::Pem);
            return out.isEmpty() ? QStringLiteral("holds no PEM certificate") : QString();
        };
    };
    const auto privateKey = [&etcd](const QByteArray &data) {
        etcd.privateKey = QSslKey(data, QSsl::Rsa);
        if (etcd.privateKey.isNull())
            etcd.privateKey = QSslKey(data, QSsl::Ec);
        return etcd.privateKey.isNull()
            ? QStringLiteral("holds no unencrypted RSA or EC private key in PEM")
            : QString();
    };
    const auto password = [&etcd](const QByteArray &data) {
        etcd.password = TessivaneTemplatePrivate::fromUtf8(data).trimmed();
        return QString();
    };
    if (!readEtcdFile(reader, table, "password_file", etcd.passwordFile, password)
        || !readEtcdFile(reader, table, "ca_file", etcd.caFile, certificates(etcd.caCertificates))
        || !readEtcdFile(reader, table, "cert_file", etcd.certFile,
                         certificates(etcd.certificateChain))
        || !readEtcdFile(reader, table, "key_file", etcd.keyFile, privateKey))
        return false;
    if (etcd.certFile.isEmpty() != etcd.keyFile.isEmpty())
        return reader.fail(table.source(), QStringLiteral("etcd.cert_file"),
                           QStringLiteral("cert_file and key_file go together"));
    return true;
}

bool readRegistry(TomlReader &reader, const toml::table &table, SyncConfiguration &configuration)
{
    const QString section = QStringLiteral("registry.");
    return reader.onlyKnown(table, section, {"files", "env", "values", "root"})
        && reader.stringArray(table, section, "files", configuration.registry.files, true)
        && reader.boolean(table, section, "env", configuration.registry.includesEnvironment)
        && reader.stringTable(table, section, "values", configuration.registry.values)
        && reader.latin1(table, section, "root", configuration.registryRoot);
}

bool readEtcd(TomlReader &reader, const toml::table &table, EtcdSettings &etcd)
{
    const QString section = QStringLiteral("etcd.");
    etcd.isSet = true;
    if (!reader.onlyKnown(table, section,
                          {"endpoints", "prefix", "username", "password_file", "ca_file",
                           "cert_file", "key_file", "timeout", "page_size"})
        || !reader.stringArray(table, section, "endpoints", etcd.endpoints, false)
        || !reader.string(table, section, "prefix", etcd.prefix)
        || !reader.string(table, section, "username", etcd.username)
        || !reader.path(table, section, "password_file", etcd.passwordFile)
        || !reader.path(table, section, "ca_file", etcd.caFile)
        || !reader.path(table, section, "cert_file", etcd.certFile)
        || !reader.path(table, section, "key_file", etcd.keyFile)
        || !reader.duration(table, section, "timeout", etcd.timeoutMs))
        return false;
    if (const toml::node *pageSize = table.get("page_size")) {
        const auto *number = pageSize->as_integer();
        // etcd finds a page's keys among all those after its first one, so that
        // small pages cost the server the square of the keys over the page size.
        if (!number || number->get() < 100 || number->get() > 1000000)
            return reader.fail(pageSize->source(), QStringLiteral("etcd.page_size"),
                               QStringLiteral("expected a number from 100 to 1000000"));
        etcd.pageSize = int(number->get());
    }
    if (etcd.timeoutMs <= 0)
        return reader.fail(table.get("timeout")->source(), QStringLiteral("etcd.timeout"),
                           QStringLiteral("must be longer than 0"));
    if (etcd.prefix.isEmpty())
        return reader.fail(table.source(), QStringLiteral("etcd.prefix"),
                           QStringLiteral("missing"));
    if (etcd.endpoints.isEmpty())
        etcd.endpoints << QStringLiteral("http://127.0.0.1:2379");
    for (const QString &endpoint : qAsConst(etcd.endpoints)) {
        const QUrl url(endpoint, QUrl::StrictMode);
        if (!url.isValid() || url.host().isEmpty()
            || (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https")))
            return reader.fail(table.get("endpoints")->source(), QStringLiteral("etcd.endpoints"),
                               QLatin1String("not an http or https URL: ") + endpoint);
    }
    return readEtcdFiles(reader, table, etcd);
}

bool readWatch(TomlReader &reader, const toml::table &table, WatchSettings &watch)
{
    const QString section = QStringLiteral("watch.");
    if (!reader.onlyKnown(table, section, {"wait", "wait_max", "backoff_max"})
        || !reader.duration(table, section, "wait", watch.waitMs)
        || !reader.duration(table, section, "wait_max", watch.waitMaxMs)
        || !reader.duration(table, section, "backoff_max", watch.backoffMaxMs))
        return false;
    // Unless given, wait_max is at least wait.
    if (!table.get("wait_max"))
        watch.waitMaxMs = qMax(watch.waitMaxMs, watch.waitMs);
    // A pause of nothing would retry an etcd that is away as fast as the machine can.
    if (watch.backoffMaxMs < 100)
        return reader.fail(table.get("backoff_max")->source(), QStringLiteral("watch.backoff_max"),
                           QStringLiteral("shorter than 100ms"));
    if (watch.waitMaxMs < watch.waitMs)
        return reader.fail(table.source(), QStringLiteral("watch.wait_max"),
                           QStringLiteral("shorter than watch.wait"));
    return true;
}

} // namespace

bool SyncConfiguration::load(const QStringList &paths)
{
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (!info.isDir()) {
            if (!loadFile(path))
                return false;
            continue;
        }
        directories << path;
        const QDir dir(path);
        for (const QString &name :
             dir.entryList({QStringLiteral("*.toml")}, QDir::Files, QDir::Name)) {
            if (!loadFile(dir.filePath(name)))
                return false;
        }
    }
    QHash<QString, QString> names; // name, destination: where they were given
    QHash<QString, QString> destinations;
    for (const TemplateSettings &settings : qAsConst(templates)) {
        const QString *earlier = names.contains(settings.name) ? &names[settings.name]
            : destinations.contains(settings.destination)      ? &destinations[settings.destination]
                                                               : nullptr;
        if (earlier) {
            const bool isName = names.contains(settings.name);
            m_error = settings.origin
                + QLatin1String(isName ? ": template.name: '" : ": template.destination: '")
                + (isName ? settings.name : settings.destination)
                + QLatin1String("' is given before, at ") + *earlier;
            return false;
        }
        names.insert(settings.name, settings.origin);
        destinations.insert(settings.destination, settings.origin);
    }
    return true;
}

QString SyncConfiguration::problemWith(const QStringList &names) const
{
    for (const QString &name : names) {
        const bool isKnown =
            std::any_of(templates.cbegin(), templates.cend(),
                        [&](const TemplateSettings &settings) { return settings.name == name; });
        if (!isKnown)
            return QLatin1String("no template is named '") + name + QLatin1Char('\'');
    }
    return QString();
}

QString SyncConfiguration::errorString() const
{
    return m_error;
}

bool SyncConfiguration::loadFile(const QString &path)
{
    files << path;
    QByteArray data;
    const QString error = readWhole(path, data);
    if (!error.isEmpty()) {
        m_error = path + QLatin1String(": cannot read: ") + error;
        return false;
    }
    toml::table root;
    try {
        root = toml::parse(std::string_view(data.constData(), size_t(data.size())),
                           QFile::encodeName(path).toStdString());
    } catch (const toml::parse_error &failure) {
        m_error = QStringLiteral("%1:%2:%3: %4")
                      .arg(path, QString::number(failure.source().begin.line),
                           QString::number(failure.source().begin.column),
                           fromStd(failure.description()));
        return false;
    }
    TomlReader reader(path);
    if (!reader.onlyKnown(root, QString(), {"registry", "etcd", "watch", "template"})) {
        m_error = reader.error;
        return false;
    }
    // The three single tables may stand in one file only.
    const struct
    {
        const char *key;
        QString *origin;
        std::function<bool(const toml::table &)> read;
    } singles[] = {
        {"registry", &m_registryOrigin,
         [&](const toml::table &table) { return readRegistry(reader, table, *this); }},
        {"etcd", &m_etcdOrigin,
         [&](const toml::table &table) { return readEtcd(reader, table, etcd); }},
        {"watch", &m_watchOrigin,
         [&](const toml::table &table) { return readWatch(reader, table, watch); }},
    };
    for (const auto &single : singles) {
        const toml::node *node = root.get(single.key);
        if (!node)
            continue;
        const toml::table *table = node->as_table();
        if (!table)
            reader.fail(node->source(), QLatin1String(single.key),
                        QStringLiteral("expected a table"));
        else if (!single.origin->isEmpty())
            reader.fail(node->source(), QLatin1String(single.key),
                        QLatin1String("given before, at ") + *single.origin);
        else if (single.read(*table))
            *single.origin = reader.origin(node->source());
        if (!reader.error.isEmpty()) {
            m_error = reader.error;
            return false;
        }
    }
    const toml::node *list = root.get("template");
    if (!list)
        return true;
    const toml::array *array = list->as_array();
    if (!array || !array->is_array_of_tables()) {
        m_error = QStringLiteral("%1:%2: template: expected [[template]] tables")
                      .arg(path, QString::number(list->source().begin.line));
        return false;
    }
    for (const toml::node &node : *array) {
        TemplateSettings settings;
        if (!readTemplate(reader, *node.as_table(), settings)) {
            m_error = reader.error;
            return false;
        }
        templates << settings;
    }
    return true;
}
