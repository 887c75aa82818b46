// Renders a bench workload with ctemplate, the engine the tool is timed against.
//
// Usage: ctemplate_driver [-r FILE]... [-R ROOT] [-s KEY=VALUE]... [-t NAME=TEXT]... TEMPLATE
//
// The options read as the tool's do, so that both programs do the same work
// in each run: the registry file is read and parsed here every time, and the
// result goes to standard output. ctemplate only substitutes variables and
// shows sections, so what the tool's commands compute from a value is
// computed here once per key, under these names (KEY is the key below ROOT
// with each "/" written as "_", so /etc/bench/k/7 is k_7):
//
//   {{KEY}}               REG(key)
//   {{KEY_QUOTE}}         REG_QUOTE(key)
//   {{KEY_INI}}           REG_INI(key)
//   {{KEY_MAPPED}}        REG(key)("value1" "one" "value2" "two")("other"), the
//                         one mapping the mixed workload uses
//   {{#KEY_IS_N}}         IF REG(key) == N, for a value that is an integer
//   {{TAG_NAME}}          TAG(name)
//   {{#TAG_NAME_IS_N}}    IF TAG(name) == N, for a text that is an integer

#include <ctemplate/template.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

[[noreturn]] void die(const std::string &message)
{
    std::fprintf(stderr, "ctemplate_driver: %s\n", message.c_str());
    std::exit(2);
}

// Writes through one buffer with write(2), as the tool writes its output,
// rather than through ctemplate's default of one string holding it all.
class FdEmitter : public ctemplate::ExpandEmitter
{
public:
    ~FdEmitter() override { flush(); }

    void Emit(char c) override { Emit(&c, 1); }
    void Emit(const std::string &s) override { Emit(s.data(), s.size()); }
    void Emit(const char *s) override { Emit(s, std::strlen(s)); }
    void Emit(const char *s, size_t length) override
    {
        if (m_used + length > sizeof m_buffer) {
            flush();
            if (length >= sizeof m_buffer) {
                writeAll(s, length);
                return;
            }
        }
        std::memcpy(m_buffer + m_used, s, length);
        m_used += length;
    }

    void flush()
    {
        writeAll(m_buffer, m_used);
        m_used = 0;
    }

private:
    static void writeAll(const char *data, size_t length)
    {
        while (length > 0) {
            const ssize_t written = ::write(STDOUT_FILENO, data, length);
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                die(std::string("writing standard output: ") + std::strerror(errno));
            data += written;
            length -= size_t(written);
        }
    }

    char m_buffer[1 << 16];
    size_t m_used = 0;
};

std::string trimmed(const std::string &text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// "key = value" lines; blank lines and lines starting with "#" are skipped.
// The bench's registry holds plain values only, so quoted values are refused
// rather than read differently from the tool.
void readRegistry(const char *path, std::map<std::string, std::string> &registry)
{
    std::ifstream in(path);
    if (!in)
        die(std::string("cannot read ") + path);
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            continue;
        const size_t equals = line.find('=');
        const std::string value =
            equals == std::string::npos ? "" : trimmed(line.substr(equals + 1));
        if (equals == std::string::npos || (!value.empty() && value[0] == '"'))
            die(std::string(path) + ":" + std::to_string(number) + ": not a plain key = value");
        registry[trimmed(line.substr(0, equals))] = value;
    }
}

// NAME=TEXT into its two halves.
std::pair<std::string, std::string> split(const char *argument)
{
    const char *equals = std::strchr(argument, '=');
    if (!equals)
        die(std::string("NAME=VALUE expected, not ") + argument);
    return {std::string(argument, equals), std::string(equals + 1)};
}

// Shows NAME_IS_N when text is the integer N, as IF ... == N compares it.
void showIfInteger(ctemplate::TemplateDictionary &dictionary, const std::string &name,
                   const std::string &text)
{
    if (text.empty())
        return;
    char *end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (*end == '\0' && errno == 0)
        dictionary.ShowSection(name + "_IS_" + std::to_string(number));
}

std::string iniEscaped(const std::string &value)
{
    std::string out;
    out.reserve(value.size());
    for (const char c : value) {
        if (c == '=')
            out += "%3D";
        else if (c == ']')
            out += "%5D";
        else
            out += c;
    }
    return out;
}

// The mixed workload's REG(key)("value1" "one" "value2" "two")("other").
const char *mapped(const std::string &value)
{
    if (value == "value1")
        return "one";
    if (value == "value2")
        return "two";
    return "other";
}

} // namespace

int main(int argc, char **argv)
{
    std::map<std::string, std::string> registry;
    std::vector<std::pair<std::string, std::string>> sets;
    std::map<std::string, std::string> tags;
    std::string root;
    int option;
    while ((option = getopt(argc, argv, "r:R:s:t:")) != -1) {
        switch (option) {
        case 'r':
            readRegistry(optarg, registry);
            break;
        case 'R':
            root = optarg;
            break;
        case 's':
            sets.push_back(split(optarg)); // applied after every file, as --set is
            break;
        case 't':
            tags.insert(split(optarg)); // the first definition wins, as with --tag
            break;
        default:
            return 2;
        }
    }
    if (optind != argc - 1)
        die("usage: ctemplate_driver [-r FILE]... [-R ROOT] [-s KEY=VALUE]... [-t NAME=TEXT]... "
            "TEMPLATE");
    for (const auto &set : sets)
        registry[set.first] = set.second;

    ctemplate::TemplateDictionary dictionary("bench");
    const std::string prefix = root.empty() ? std::string() : root + "/";
    for (const auto &entry : registry) {
        std::string name = entry.first.compare(0, prefix.size(), prefix) == 0
            ? entry.first.substr(prefix.size())
            : entry.first;
        for (char &c : name) {
            if (c == '/')
                c = '_';
        }
        const std::string &value = entry.second;
        dictionary.SetValue(name, value);
        dictionary.SetValue(name + "_QUOTE", "\"" + value + "\"");
        dictionary.SetValue(name + "_INI", iniEscaped(value));
        dictionary.SetValue(name + "_MAPPED", mapped(value));
        showIfInteger(dictionary, name, value);
    }
    for (const auto &tag : tags) {
        dictionary.SetValue("TAG_" + tag.first, tag.second);
        showIfInteger(dictionary, "TAG_" + tag.first, tag.second);
    }

    FdEmitter out;
    if (!ctemplate::ExpandTemplate(argv[optind], ctemplate::DO_NOT_STRIP, &dictionary, &out))
        die(std::string("ctemplate could not load or expand ") + argv[optind]);
    return 0;
}
