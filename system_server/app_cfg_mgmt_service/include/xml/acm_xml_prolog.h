// Finds the declarations of a DOCTYPE in a text, ahead of the parser.
#ifndef ACM_XML_PROLOG_H
#define ACM_XML_PROLOG_H

#include <cstddef>
#include <string>

namespace SystemServer {

// Follows the markup in front of the root element: comments, instructions, and the DOCTYPE with its
// declarations. Every encoding that the parser knows has ASCII characters as single bytes, or is UTF-16.
// Lives for one parse.
class AcmXmlProlog {
public:
    // The text must outlive this object.
    explicit AcmXmlProlog(const std::string& text);

    // Where the next piece of markup, or of blanks, behind this position ends; npos from the root element on.
    // Each position must be larger than the one before.
    size_t NextEnd(size_t position);

    // Whether that piece is blanks, for which the parser reports no event.
    bool IsBlank() const { return m_isBlank; }

private:
    static constexpr char OTHER = '\x01'; // a character beyond ASCII

    char At(size_t position) const;
    bool Matches(size_t position, const char* ascii) const;
    size_t Skip(size_t position, const char* end) const;
    size_t SkipDeclaration(size_t position) const;
    size_t SkipMarkup(size_t position);

    const std::string& m_text;
    size_t m_width = 1;   // bytes of a character
    size_t m_lowByte = 0; // offset of its low byte
    size_t m_end = 0;     // end of the last piece
    bool m_inSubset = false;
    bool m_isInRoot = false;
    bool m_isBlank = false;
};

} // namespace SystemServer

#endif
