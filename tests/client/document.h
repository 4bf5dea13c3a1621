// The fenced blocks of the project's pages, which tests run.
#ifndef TESTS_CLIENT_DOCUMENT_H
#define TESTS_CLIENT_DOCUMENT_H

#include <string>

namespace appcfg::test {

// The text of the first block after `from` in docs/<page> that opens with ```<info>; throws without one.
std::string BlockOf(const std::string& page, const std::string& info, const std::string& from = {});

// The bytes of a dump: an offset, bytes in hexadecimal, and text between bars; * repeats the line above up
// to the next offset.
std::string BytesOfDump(const std::string& dump);

} // namespace appcfg::test

#endif
