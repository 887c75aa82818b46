#ifndef OPTIONTAGHANDLER_H
#define OPTIONTAGHANDLER_H

#include "tessivanetemplatetag.h"

#include <QHash>

/**
 * \brief Serves the tags given on the command line as NAME=TEXT.
 *
 * TAG(NAME) writes TEXT; IF TAG(NAME) gets TEXT's value when TEXT is a
 * decimal integer and fails (so the block is skipped) otherwise. The first
 * definition of a name wins.
 */
class OptionTagHandler : public TessivaneTemplateTag
{
public:
    /// Adds \a name with \a text unless the name is already defined.
    void define(const QString &name, const QString &text);
    bool isEmpty() const;
    bool processTag(const QString &tagName, QTextStream *out, bool wantValue, int *value) override;

private:
    QHash<QString, QString> m_texts;
};

#endif
