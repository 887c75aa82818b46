#include "tessivanetemplatetag.h"

#include "qtcompat_p.h"

using namespace TessivaneTemplatePrivate;

TessivaneTemplateTag::TessivaneTemplateTag()
    : backend(nullptr)
    , engine(nullptr)
{
}

TessivaneTemplateTag::~TessivaneTemplateTag() = default;

void TessivaneTemplateTag::addTagName(const char *name)
{
    const QString tagName = fromAscii(name);
    if (!tagNames.contains(tagName))
        tagNames.append(tagName);
}

// The names are added as they are, not through an 8-bit round trip, so that a
// name outside ASCII is served exactly as the host wrote it.
void TessivaneTemplateTag::addTagNames(QStringList &names)
{
    for (const QString &name : qAsConst(names)) {
        if (!tagNames.contains(name))
            tagNames.append(name);
    }
}

void TessivaneTemplateTag::removeTagName(const char *name)
{
    tagNames.removeOne(fromAscii(name));
}

bool TessivaneTemplateTag::containsTagName(const char *name)
{
    return tagNames.contains(QLatin1String(name));
}

QStringList TessivaneTemplateTag::tagNameList() const
{
    return tagNames;
}

void TessivaneTemplateTag::setRegistryBackend(Tessivane *newBackend)
{
    backend = newBackend;
}

Tessivane *TessivaneTemplateTag::registryBackend()
{
    return backend;
}

void TessivaneTemplateTag::setTessivaneTemplate(TessivaneTemplate *newEngine)
{
    engine = newEngine;
}

TessivaneTemplate *TessivaneTemplateTag::tessivaneTemplate()
{
    return engine;
}

TessivaneTemplateTagPtr::TessivaneTemplateTagPtr()
    : tagFunction(nullptr)
{
}

TessivaneTemplateTagPtr::~TessivaneTemplateTagPtr() = default;

void TessivaneTemplateTagPtr::setTagPtr(TagFunction function)
{
    tagFunction = function;
}

bool TessivaneTemplateTagPtr::processTag(const QString &tagName, QTextStream *out, bool wantValue,
                                         int *value)
{
    if (!tagFunction)
        return false;
    return tagFunction(tagName, out, wantValue, value);
}
