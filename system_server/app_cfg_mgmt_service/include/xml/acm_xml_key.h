// One step of a key such as "a.b[2][@id='x']".
#ifndef ACM_XML_KEY_H
#define ACM_XML_KEY_H

#include <string>

namespace SystemServer {

struct AcmXmlKeyStep {
    enum Kind {
        CHILD,           // name: the child element's name
        SIBLING,         // index: the index-th following sibling of the same name
        ATTRIBUTE_VALUE, // name, value: the element of the same name whose attribute has the value
        ATTRIBUTE,       // name: the attribute itself; the walk ends here
    };
    Kind kind = CHILD;
    std::string name;
    std::string value;
    int index = 0;
};

// Reads the step at the position, which must not be the end, and moves the position behind it. Throws
// Poco::SyntaxException for an index that is no number.
AcmXmlKeyStep ReadXmlKeyStep(std::string::const_iterator& position, const std::string::const_iterator& end);

} // namespace SystemServer

#endif
