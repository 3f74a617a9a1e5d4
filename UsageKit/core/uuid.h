// Random (version 4) UUIDs in canonical upper-case text, for ids and temporary names.
#pragma once

#include <string>

namespace usagekit {
std::string randomUUID();
}
