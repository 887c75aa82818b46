// A small host: loads registry files, registers its tags and renders the
// template named on the command line to standard output.

#include <tessivaneregistryfile.h>
#include <tessivanetemplate.h>

#include <QDate>
#include <QFile>
#include <QTextStream>

#include <cstdio>

static bool exampleTags(const QString &name, QTextStream *out, bool wantValue, int *value)
{
    if (name == QLatin1String("workers")) {
        if (wantValue)
            *value = 4;
        else
            *out << 4;
        return true;
    }
    if (name == QLatin1String("hostname") && !wantValue) {
        *out << "example-host";
        return true;
    }
    if (name == QLatin1String("date") && !wantValue) {
        *out << QDate::currentDate().toString(Qt::ISODate);
        return true;
    }
    return false;
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: example-host TEMPLATE [REGISTRY-FILE...]\n");
        return 2;
    }
    Tessivane registry;
    for (int i = 2; i < argc; ++i) {
        TessivaneRegistryFile file;
        if (!file.load(QFile::decodeName(argv[i]), &registry)) {
            std::fprintf(stderr, "%s\n", qPrintable(file.errorString()));
            return 2;
        }
    }

    TessivaneTemplate engine;
    engine.setRegistryBackend(&registry); // before the tags, so that they receive it
    engine.setRegRoot("/etc/webshop");
    engine.setCommentPrefix("#");

    TessivaneTemplateTagPtr tags;
    tags.addTagName("hostname");
    tags.addTagName("workers");
    tags.addTagName("date");
    tags.setTagPtr(exampleTags);
    engine.addTag(&tags);

    QFile out;
    out.open(stdout, QIODevice::WriteOnly);
    return engine.process(argv[1], out);
}
