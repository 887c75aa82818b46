#include "syntaxscan_p.h"

#include <cstring>

#include <QtAlgorithms>

#include <algorithm>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace TessivaneTemplatePrivate {

namespace {

const QLatin1String s_mark("%%");

// The position of \a c in \a data at or after \a from, eight characters at a
// time where the processor allows; -1 when it is not there. The last eight
// are looked at in one step too, overlapping what was searched before, where
// nothing was found.
int indexOfChar(const ushort *data, int size, int from, ushort c)
{
    int i = from;
#ifdef __SSE2__
    const __m128i needle = _mm_set1_epi16(short(c));
    const auto find = [&](int at) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + at));
        const uint mask = uint(_mm_movemask_epi8(_mm_cmpeq_epi16(chunk, needle)));
        return mask ? at + int(qCountTrailingZeroBits(mask) / 2) : -1;
    };
    for (; i + 8 <= size; i += 8) {
        const int found = find(i);
        if (found >= 0)
            return found;
    }
    if (i < size && size - 8 >= from)
        return find(size - 8);
#endif
    for (; i < size; ++i) {
        if (data[i] == c)
            return i;
    }
    return -1;
}

bool isSyntaxChar(ushort c)
{
    return c == '(' || c == ')' || c == '"' || c == '\\';
}

// The "(", ")", double quotes and backslashes among the eight characters of
// \a text from \a base, a bit each; where fewer than eight are left, the
// last eight of the text are compared and shifted into place. A group scan so
// pays a step per eight characters and one per character it looks at.
uint syntaxBits(const ushort *text, int size, int base)
{
#ifdef __SSE2__
    if (size >= 8) {
        const int at = qMin(base, size - 8);
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + at));
        const __m128i hits =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(chunk, _mm_set1_epi16('(')),
                                      _mm_cmpeq_epi16(chunk, _mm_set1_epi16(')'))),
                         _mm_or_si128(_mm_cmpeq_epi16(chunk, _mm_set1_epi16('"')),
                                      _mm_cmpeq_epi16(chunk, _mm_set1_epi16('\\'))));
        return uint(_mm_movemask_epi8(_mm_packs_epi16(hits, _mm_setzero_si128()))) >> (base - at);
    }
#endif
    uint bits = 0;
    for (int i = base; i < size && i < base + 8; ++i)
        bits |= uint(isSyntaxChar(text[i])) << (i - base);
    return bits;
}

#ifdef __SSE2__
// The "%%" marks that start in the sixteen bytes at \a data, a bit each: a
// byte and the one after it, which must be there to be read.
uint markBits(const char *data)
{
    const __m128i percent = _mm_set1_epi8('%');
    const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data));
    const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + 1));
    return uint(_mm_movemask_epi8(
        _mm_and_si128(_mm_cmpeq_epi8(here, percent), _mm_cmpeq_epi8(next, percent))));
}
#endif

} // namespace

bool widenAscii(const char *in, int size, ushort *out)
{
    int i = 0;
#ifdef __SSE2__
    const __m128i zero = _mm_setzero_si128();
    const auto widen = [&](int at) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + at));
        if (_mm_movemask_epi8(chunk))
            return false;
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + at), _mm_unpacklo_epi8(chunk, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + at + 8), _mm_unpackhi_epi8(chunk, zero));
        return true;
    };
    const auto widenEight = [&](int at) {
        const __m128i chunk = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(in + at));
        if (_mm_movemask_epi8(chunk))
            return false;
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + at), _mm_unpacklo_epi8(chunk, zero));
        return true;
    };
    for (; i + 16 <= size; i += 16) {
        if (!widen(i))
            return false;
    }
    // A last piece shorter than sixteen in one or two overlapping steps,
    // writing again what was written before.
    if (i < size && size >= 16)
        return widen(size - 16);
    if (i < size && size >= 8)
        return widenEight(0) && widenEight(size - 8);
#endif
    for (; i < size; ++i) {
        const unsigned char c = static_cast<unsigned char>(in[i]);
        if (c > 0x7F)
            return false;
        out[i] = c;
    }
    return true;
}

int indexOfText(QStringView text, QLatin1String needle, int from)
{
    const ushort first = needle.at(0).unicode();
    const ushort *data = reinterpret_cast<const ushort *>(text.utf16());
    const int size = int(text.size());
    const int last = size - needle.size();
    for (int i = indexOfChar(data, size, from, first); i >= 0 && i <= last;
         i = indexOfChar(data, size, i + 1, first)) {
        int matched = 1;
        while (matched < needle.size() && data[i + matched] == needle.at(matched).unicode())
            ++matched;
        if (matched == needle.size())
            return i;
    }
    return -1;
}

int indexOfMark(QStringView line, int from)
{
    return indexOfText(line, s_mark, from);
}

int indexOfMark(QLatin1String line, int from)
{
    const char *data = line.data();
    const int size = int(line.size());
    int i = from;
#ifdef __SSE2__
    // Sixteen places at a time, the last sixteen as in indexOfChar().
    const auto find = [&](int at) {
        const uint mask = markBits(data + at);
        return mask ? at + int(qCountTrailingZeroBits(mask)) : -1;
    };
    for (; i + 17 <= size; i += 16) {
        const int found = find(i);
        if (found >= 0)
            return found;
    }
    if (i + 1 < size && size - 17 >= from)
        return find(size - 17);
#endif
    for (; i + 1 < size; ++i) {
        if (data[i] == '%' && data[i + 1] == '%')
            return i;
    }
    return -1;
}

int plainTextPrefix(const char *data, int size, int &lineFeeds)
{
    int i = 0;
    lineFeeds = 0;
#ifdef __SSE2__
    const __m128i carriageReturn = _mm_set1_epi8('\r');
    const __m128i feed = _mm_set1_epi8('\n');
    while (i + 17 <= size) {
        // Each byte lane counts up to 255 line feeds before the lanes are summed.
        __m128i lanes = _mm_setzero_si128();
        int stop = -1;
        for (int round = 0; round < 255 && i + 17 <= size; ++round, i += 16) {
            const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + i));
            const __m128i feeds = _mm_cmpeq_epi8(here, feed);
            const uint stops = markBits(data + i)
                | uint(_mm_movemask_epi8(_mm_or_si128(here, _mm_cmpeq_epi8(here, carriageReturn))));
            if (stops) {
                const uint before = (1u << qCountTrailingZeroBits(stops)) - 1;
                lineFeeds += qPopulationCount(uint(_mm_movemask_epi8(feeds)) & before);
                stop = i + int(qCountTrailingZeroBits(stops));
                break;
            }
            lanes = _mm_sub_epi8(lanes, feeds);
        }
        const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
        lineFeeds += _mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4);
        if (stop >= 0)
            return stop;
    }
#endif
    for (; i < size; ++i) {
        const auto c = static_cast<unsigned char>(data[i]);
        if (c > 0x7F || c == '\r' || (c == '%' && i + 1 < size && data[i + 1] == '%'))
            return i;
        lineFeeds += c == '\n';
    }
    return i;
}

template<typename Text> bool BasicTokenWalker<Text>::next(Text &token, bool &isCommand)
{
    while (m_position < m_line.size()) {
        // A closing mark is searched from behind the opening one, so "%%%%"
        // is one empty command while "%%%" stays unclosed.
        const int start = m_position;
        const int mark = indexOfMark(m_line, m_inCommand ? start + 2 : start);
        if (mark < 0)
            break;
        const bool wasCommand = m_inCommand;
        m_inCommand = !m_inCommand;
        m_position = wasCommand ? mark + 2 : mark;
        if (m_position > start) {
            token = m_line.mid(start, m_position - start);
            isCommand = wasCommand;
            m_hasToken = true;
            return true;
        }
    }
    if (m_position >= m_line.size() && m_hasToken)
        return false;
    token = m_line.mid(m_position);
    isCommand = m_inCommand;
    m_position = int(m_line.size());
    m_hasToken = true;
    return true;
}

template class BasicTokenWalker<QStringView>;
template class BasicTokenWalker<QLatin1String>;

// Copies \a source into \a target, in the buffer \a target already owns when
// it is large enough: the parser reuses its name and parameter for every
// command, which so costs no allocation.
void assign(QString &target, QStringView source)
{
    if (target.size() != source.size())
        target.resize(int(source.size()));
    std::copy(source.begin(), source.end(), target.data());
}

void assign(QString &target, QLatin1String source)
{
    if (target.size() != source.size())
        target.resize(int(source.size()));
    const bool isAscii =
        widenAscii(source.data(), int(source.size()), reinterpret_cast<ushort *>(target.data()));
    Q_ASSERT(isAscii);
    Q_UNUSED(isAscii);
}

QStringView trimmed(QStringView text)
{
    return text.trimmed();
}

int indexOfOpen(QStringView text)
{
    return indexOfChar(reinterpret_cast<const ushort *>(text.utf16()), int(text.size()), 0, '(');
}

// In ASCII, the blanks QChar::isSpace() knows are these.
bool isAsciiSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

QLatin1String trimmed(QLatin1String text)
{
    const char *begin = text.data();
    const char *end = begin + text.size();
    while (begin < end && isAsciiSpace(*begin))
        ++begin;
    while (end > begin && isAsciiSpace(end[-1]))
        --end;
    return QLatin1String(begin, end);
}

int indexOfOpen(QLatin1String text)
{
    const auto *open =
        static_cast<const char *>(std::memchr(text.data(), '(', size_t(text.size())));
    return open ? int(open - text.data()) : -1;
}

template<typename Text> bool splitCommand(Text token, QString &name, QString &parameter)
{
    // A token shorter than four characters loses what it has after its first two.
    const int length = int(token.size());
    const int size = qMax(length >= 4 ? length - 4 : length - 2, 0);
    const Text content = trimmed(token.mid(qMin(2, length), size));
    const int open = indexOfOpen(content);
    if (open < 0) {
        assign(name, content);
        return false;
    }
    assign(name, content.left(open));
    assign(parameter, content.mid(open));
    return true;
}

bool splitCommandToken(QStringView token, QString &name, QString &parameter)
{
    return splitCommand(token, name, parameter);
}

bool splitCommandToken(QLatin1String asciiToken, QString &name, QString &parameter)
{
    return splitCommand(asciiToken, name, parameter);
}

// Nothing inside a group is removed (an escape keeps both characters), so a
// group is the plain text between its parentheses. A group that is never
// closed, because of its parenthesis or an open string, is dropped.
void splitGroups(QStringView parameter, GroupList &groups)
{
    const ushort *text = reinterpret_cast<const ushort *>(parameter.utf16());
    const int size = int(parameter.size());
    int groupStart = -1;
    bool inString = false;
    bool hasParenthesis = false;
    // The quote after a backslash in a string, which does not close it.
    int escaped = -1;
    for (int base = 0; base < size; base += 8) {
        for (uint bits = syntaxBits(text, size, base); bits; bits &= bits - 1) {
            const int i = base + int(qCountTrailingZeroBits(bits));
            const ushort c = text[i];
            hasParenthesis = hasParenthesis || c == '(' || c == ')';
            if (i == escaped) {
                continue;
            } else if (groupStart < 0) {
                if (c == '(')
                    groupStart = i + 1;
            } else if (c == '"') {
                inString = !inString;
            } else if (inString) {
                if (c == '\\' && i + 1 < size && text[i + 1] == '"')
                    escaped = i + 1;
            } else if (c == ')') {
                groups.append(parameter.mid(groupStart, i - groupStart));
                groupStart = -1;
            }
        }
    }
    // A parameter without any parenthesis is one group.
    if (!hasParenthesis)
        groups.append(parameter);
}

} // namespace TessivaneTemplatePrivate
