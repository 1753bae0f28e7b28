#pragma once

#include <string_view>

namespace quorl {

/// Whether the text is an XML property list that is whole and no deeper than `deepest`: one root,
/// every element known, in its place and closed by its own end, a value to each key, nothing but
/// white space and comments around it, no entities of its own. What a parser that trusts its input
/// may be given.
bool isWholeXmlPlist(std::string_view xml, std::size_t deepest);

}  // namespace quorl
