#include "engine/replacements/replist.h"

#include <cstdint>

#include "engine/core/state.h"
#include "engine/pattern/notation.h"
#include "engine/pattern/stringtools.h"
#include "engine/replacements/profile.h"

namespace brindlex {
namespace {

const std::string kSectionPrefix = std::string(kRepSection) + "|";

void raisecount(const std::string& name, int& nRepCount)
{
    std::string head = name.substr(0, 5);
    uppercase(head);
    if (head != "USER-")
        return;
    std::int64_t n = leadingnumber(std::string_view(name).substr(5));
    if (n > nRepCount && n <= 32767)
        nRepCount = static_cast<int>(n);
}

}  // namespace

std::vector<RepItem> readsets(const std::filesystem::path& sIniFile, int& nRepCount)
{
    std::string keylist = profilestring(0, std::string(kRepSection), sIniFile);
    std::vector<RepItem> sets;
    while (!keylist.empty()) {
        std::string name = nexttoken(keylist, std::string(1, '\0'));
        if (!name.empty())
            sets.push_back({name, profilestring(1, kSectionPrefix + name, sIniFile)});
        raisecount(name, nRepCount);
    }
    return sets;
}

std::vector<RepItem> loadreplist(const std::filesystem::path& sIniFile, int& nRepCount)
{
    std::vector<RepItem> items = readsets(sIniFile, nRepCount);
    if (items.empty()) {
        profilestring(2, kSectionPrefix + std::string(kDefaultSetKey) + "=" + std::string(kDefaultSetValue), sIniFile);
        std::string name(kDefaultSetKey);
        items.push_back({name, profilestring(1, kSectionPrefix + name, sIniFile)});
    }
    items.push_back({"-", ""});
    items.push_back({"&New", ""});
    if (!isdefaultfile(sIniFile.string())) {
        items.push_back({"Replace &All of the Above", std::string(kDoAllReps)});
        items.push_back({"Find &All of the Above", std::string(kDoAllFinds)});
    }
    return items;
}

std::string loadedmessage(std::size_t count, const std::string& sIniFile)
{
    return std::to_string(count) + " replacements loaded from " + sIniFile + ".";
}

RepAction repaction(const std::string& tag)
{
    if (tag.empty())
        return RepAction::New;
    if (tag == kDoAllReps)
        return RepAction::ReplaceAll;
    if (tag == kDoAllFinds)
        return RepAction::FindAll;
    return RepAction::Pick;
}

RepPair splitset(std::string tag)
{
    RepPair pair;
    pair.find = nexttoken(tag, "==>");
    pair.replace = tag;
    return pair;
}

std::size_t listrun(const std::vector<RepItem>& items, const std::function<bool()>& cancelled,
                    const std::function<void(const RepItem& item, const RepPair& pair)>& runset)
{
    std::size_t ran = 0;
    for (std::size_t i = 0; i <= kListRunLast && i < items.size(); ++i) {
        if (items[i].tag.empty() || cancelled())
            break;
        runset(items[i], splitset(items[i].tag));
        ++ran;
    }
    return ran;
}

std::string nameprompt(const std::string& pair)
{
    std::string crlf(sCRLF);
    return "Name for " + crlf + crlf + pair + crlf + crlf + "?";
}

std::optional<std::string> saverep(std::string sName, const std::string& sText2, const std::string& sText3,
                                   const std::filesystem::path& sIniFile, int nRepCount, const NameQuestion& ask,
                                   Error* failed)
{
    if (!isdefaultfile(sIniFile.string()) && sName.empty())
        return std::nullopt;
    std::string pair = sText2 + "==>" + sText3;
    std::string key;
    if (sName.empty()) {
        key = kPreviousKey;
    } else {
        if (sName == kPreviousKey)
            sName = "User-" + std::to_string(nRepCount + 1);
        key = ask(nameprompt(pair), sName);
        if (key.empty())
            return std::nullopt;
    }
    replaceall(pair, " ", "%20");
    replaceall(key, "=", "-");
    const Error error = writeprofilestring(sIniFile, kRepSection, key, pair);
    if (failed)
        *failed = error;
    return key;
}

std::string notsavedmessage(const std::string& key, const std::string& sIniFile)
{
    return "The set " + key + " could not be saved in " + sIniFile;
}

}  // namespace brindlex
