#ifndef TESSIVANETEMPLATE_PARAMETER_P_H
#define TESSIVANETEMPLATE_PARAMETER_P_H

#include <QString>
#include <QStringView>

class TessivaneTemplateParser;
class TessivaneTemplateTag;

namespace TessivaneTemplatePrivate {

// The shape test every command with an argument makes before anything else:
// its parameter, as the parser delivers it, opens with "(" and closes with ")".
inline bool isParenthesized(QStringView parameter)
{
    return parameter.startsWith(QLatin1Char('(')) && parameter.endsWith(QLatin1Char(')'));
}

// TessivaneTemplateCommandReg::getReg() on a view of the parameter, for the
// conditions, which find theirs inside their own parameter. \a value points
// at the text where it is kept, in the registry or in the parameter's parsed
// mapping or default: valid until the next registry command or change.
int readRegistryValue(TessivaneTemplateParser *parser, QStringView parameter, const QString *&value,
                      QString &message);
// TessivaneTemplateCommandTag::getTagUsingParameter() on a view of the parameter.
TessivaneTemplateTag *findTagOfParameter(TessivaneTemplateParser *parser, QStringView parameter,
                                         QString &tagName);

} // namespace TessivaneTemplatePrivate

#endif
