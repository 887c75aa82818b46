#ifndef TESSIVANETEMPLATE_PARAMETER_P_H
#define TESSIVANETEMPLATE_PARAMETER_P_H

#include <QString>

namespace TessivaneTemplatePrivate {

// The shape test every command with an argument makes before anything else:
// its parameter, as the parser delivers it, opens with "(" and closes with ")".
inline bool isParenthesized(const QString &parameter)
{
    return parameter.startsWith(QLatin1Char('(')) && parameter.endsWith(QLatin1Char(')'));
}

} // namespace TessivaneTemplatePrivate

#endif
