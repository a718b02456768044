// Text as a workbook file can hold it. The file is XML 1.0 in UTF-8: a byte that does not
// begin a well-formed UTF-8 sequence, a control character other than tab, line feed and carriage
// return, or one of the non-characters U+FFFE and U+FFFF would make the application refuse (or
// "repair") the file. The object model passes every text it stores through here.
#pragma once

#include <string>
#include <string_view>

namespace xl {

// True when s is already well-formed UTF-8 of characters a workbook can hold.
bool IsWorkbookText(std::string_view s) noexcept;

// s made storable: each maximal ill-formed UTF-8 subsequence and each U+FFFE / U+FFFF becomes
// U+FFFD; control characters other than tab, line feed and carriage return (NUL included) are
// dropped. Text that needs nothing comes back unchanged.
std::string WorkbookText(std::string_view s);

}  // namespace xl
