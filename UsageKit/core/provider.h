// Which tool or account a record came from. A provider is just its id; the catalogue
// gives the sixteen we know their display names and whether they bill per token
// (metered) or are paid by a subscription seat. Unknown ids are legal: their name is the
// id and they count as metered.
#pragma once

#include "core/json.h"

#include <string>
#include <vector>

namespace usagekit {

struct Provider {
    std::string id;

    Provider() = default;
    explicit Provider(std::string identifier) : id(std::move(identifier)) {}

    std::string name() const;
    std::string shortName() const;  // the first two characters of the name, upper-cased
    bool isMetered() const;

    bool operator==(const Provider& other) const { return id == other.id; }
    // Providers sort by display name, not by id.
    bool operator<(const Provider& other) const { return name() < other.name(); }

    void encode(JsonWriter& writer) const;
    static std::optional<Provider> decode(const JSON& json);
    static std::optional<Provider> decode(simdjson::ondemand::value json);  // the same rules

    static const Provider claudeCode, grokCLI, codexCLI, geminiCLI, cursorAgent, cursorOnDemand,
        openCode, copilot, devinCLI, antigravity, anthropic, openAI, xai, openRouter, deepSeek,
        gumloop;
    // All sixteen, in catalogue order.
    static const std::vector<Provider>& all();
};

inline const Provider Provider::claudeCode{"claude-code"};
inline const Provider Provider::grokCLI{"grok-cli"};
inline const Provider Provider::codexCLI{"codex-cli"};
inline const Provider Provider::geminiCLI{"gemini-cli"};
inline const Provider Provider::cursorAgent{"cursor-agent"};
inline const Provider Provider::cursorOnDemand{"cursor-on-demand"};
inline const Provider Provider::openCode{"opencode"};
inline const Provider Provider::copilot{"github-copilot"};
inline const Provider Provider::devinCLI{"devin-cli"};
inline const Provider Provider::antigravity{"antigravity"};
inline const Provider Provider::anthropic{"anthropic-api"};
inline const Provider Provider::openAI{"openai-api"};
inline const Provider Provider::xai{"xai-api"};
inline const Provider Provider::openRouter{"openrouter"};
inline const Provider Provider::deepSeek{"deepseek"};
inline const Provider Provider::gumloop{"gumloop"};

}  // namespace usagekit

template <>
struct std::hash<usagekit::Provider> {
    size_t operator()(const usagekit::Provider& p) const noexcept {
        return std::hash<std::string>()(p.id);
    }
};
