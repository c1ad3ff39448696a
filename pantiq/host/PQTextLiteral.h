// Quoted text as graph files and launch lines write it: 'text', '' for one quote, '#10' between two quotes for the byte
// of that number (control characters, and bytes that are not UTF-8). Every string of bytes has such a form.
#pragma once
#include <string>
#include <string_view>

#include "pantiq/host/PQClassInfo.h"

namespace pantiq {

PQ_EXPORT std::string PQQuote(std::string_view text);

// Reads the quoted text at the start of `text` and appends what it says to `content`. Answers the length of the quoted
// form, 0 if none stands there or it is not closed on its line.
PQ_EXPORT std::size_t PQUnquote(std::string_view text, std::string& content);

// The nearest of a property's words to a misspelt one; empty if none comes close.
PQ_EXPORT std::string PQNearestWord(const PQProperty& property, std::string_view text);

}  // namespace pantiq
