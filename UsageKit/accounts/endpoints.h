// The providers' API hosts. Each default can be replaced by an environment variable
// (TALLY_ENDPOINT_ANTHROPIC, _OPENAI, _XAI, _OPENROUTER, _DEEPSEEK, _CURSOR), which is how
// tests point the sources at a loopback server. Read on every call; a trailing "/" is
// dropped, so callers append paths that begin with "/".
#pragma once

#include <string>

namespace usagekit::Endpoints {

std::string anthropic();
std::string openAI();
std::string xai();
std::string openRouter();
std::string deepSeek();
std::string cursor();

}  // namespace usagekit::Endpoints
