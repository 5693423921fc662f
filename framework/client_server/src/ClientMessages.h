// Helpers shared by the client server and the journal client (no asio here).
#pragma once

#include <string>

namespace fw {
namespace clientserver {

// The root element's name of an XML text: after an optional byte order mark, declaration,
// comments and document type. Empty when there is none.
std::string rootElementName(const std::string& text);

}  // namespace clientserver
}  // namespace fw
