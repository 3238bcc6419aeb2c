#include "tools/report/page_text.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "tools/files/json_text.h"
#include "tools/report/page_files.h"

namespace fs = std::filesystem;
namespace {

// JSON for a script element, which only a "<" could end. In JSON it occurs in strings alone.
std::string ScriptText(const Json& data) {
    std::string text;
    for (const char character : JsonText(data, -1)) {
        if (character == '<') {
            text += "\\u003c";
        } else {
            text += character;
        }
    }
    return text;
}

// The policy of a page that is a file: it runs its own script and shows its own pictures, and can
// load nothing, whatever a name or a log line in it holds.
constexpr std::string_view kFilePolicy = "default-src 'none'; img-src data:; "
                                         "style-src 'unsafe-inline'; script-src 'unsafe-inline'";

// The marks in the order of the page. What replaces them is not searched for marks.
std::string Filled(std::string_view rest,
                   std::initializer_list<std::pair<std::string_view, std::string_view>> marks) {
    std::string page;
    for (const auto& [mark, text] : marks) {
        const auto at = rest.find(mark);
        page += rest.substr(0, at);
        page += text;
        rest.remove_prefix(at + mark.size());
    }
    return page += rest;
}

// `nonce`: the attribute of style and script elements that the policy asks for, or empty. `more`:
// what follows the page's scripts.
std::string CapturePage(const Json& data, std::string_view reduced, std::string_view pictures,
                        std::string_view policy, std::string_view nonce, std::string_view more) {
    return Filled(kPageHtml, {{"{policy}", policy},
                              {"{nonce}", nonce},
                              {"{page.css}", kPageCss},
                              {"{data}", ScriptText(data)},
                              {"{nonce}", nonce},
                              {"{shared.js}", kSharedJs},
                              {"{reduced}", reduced},
                              {"{nonce}", nonce},
                              {"{pictures.js}", kPicturesJs},
                              {"{nonce}", nonce},
                              {"{stage.js}", kStageJs},
                              {"{nonce}", nonce},
                              {"{page.js}", kPageJs},
                              {"{more}", more},
                              {"{pictures}", pictures}});
}

} // namespace

std::string CapturePage(const nlohmann::ordered_json& data, const std::string& reduced,
                        const std::string& pictures) {
    return CapturePage(data, reduced, pictures, kFilePolicy, "", "");
}

std::string LivePage(const nlohmann::ordered_json& data, const std::string& policy,
                     const std::string& nonce) {
    const std::string attribute = fmt::format(" nonce=\"{}\"", nonce);
    return CapturePage(data, "", "", policy, attribute,
                       fmt::format("<script{}>{}</script>\n", attribute, kLiveJs));
}

std::string OverviewPage(const nlohmann::ordered_json& data, const std::string& policy,
                         const std::string& nonce) {
    const std::string attribute = nonce.empty() ? "" : fmt::format(" nonce=\"{}\"", nonce);
    return Filled(kOverviewHtml, {{"{policy}", policy.empty() ? kFilePolicy : policy},
                                  {"{nonce}", attribute},
                                  {"{page.css}", kPageCss},
                                  {"{data}", ScriptText(data)},
                                  {"{nonce}", attribute},
                                  {"{shared.js}", kSharedJs},
                                  {"{nonce}", attribute},
                                  {"{overview.js}", kOverviewJs}});
}

std::string LinkTo(const fs::path& file, const fs::path& folder) {
    // These are the unreserved characters of RFC 3986 and the slash between folders.
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    std::string link;
    for (const char character : fs::absolute(file)
                                    .lexically_normal()
                                    .lexically_relative(fs::absolute(folder).lexically_normal())
                                    .string()) {
        link += kPlain.find(character) != std::string_view::npos
                    ? std::string(1, character)
                    : fmt::format("%{:02X}", static_cast<unsigned char>(character));
    }
    return link;
}
