#pragma once

#include <string>
#include <string_view>

#include "host/except/Exception.hpp"

namespace foundation::core::except {

// The English text of a message identifier with its holes ({0}, {1}, ...) filled from the
// arguments. An identifier missing from the catalogue is shown as itself followed by its
// arguments, so that no error is ever shown without its data.
std::string formatMessage(std::string_view identifier, const MessageArguments& arguments);

// The raw catalogue text, or an empty text when the identifier is unknown.
std::string_view catalogueText(std::string_view identifier);

// The text of one argument: integers in decimal, UTF-16 converted to UTF-8.
std::string argumentText(const MessageArgument& argument);

}  // namespace foundation::core::except
