#ifndef TESSIVANETEMPLATECOMMANDREG_H
#define TESSIVANETEMPLATECOMMANDREG_H

#include "tessivanetemplatecommand.h"

/**
 * \brief Registry values: "REG", "REG_QUOTE" and "REG_INI", and in version 2
 * of the language "REG_JSON" and "REG_SHELL".
 *
 * A registry parameter is up to three groups: the key, in which every
 * "$REGROOT" becomes the engine's registry root; an optional mapping of
 * double-quoted value/replacement pairs; an optional default value. REG
 * writes the value as it is, REG_QUOTE between double quotes, REG_INI with
 * "=" and "]" escaped as "%3D" and "%5D", REG_JSON as a JSON string literal,
 * REG_SHELL as one shell word in single quotes. A failed lookup writes nothing and
 * warns. The object holds no state, so any instance serves for getReg().
 *
 * \sa Tessivane, TessivaneTemplateCommandIf
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandReg : public TessivaneTemplateCommand
{
public:
    ~TessivaneTemplateCommandReg() override;
    bool isResponsibleFor(const QString &name) override;
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;

    /**
     * Looks up the registry parameter \a parameter. Returns 0 with the result
     * in \a value, or 1 with \a value untouched. \a message receives a finished
     * text to report when the lookup failed for a reason worth telling, or
     * when a default value stood in for a missing key; it is left as it was
     * otherwise, so callers pass a null string.
     */
    int getReg(TessivaneTemplateParser *parser, const QString &parameter, QString &value,
               QString &message);
};

#endif
