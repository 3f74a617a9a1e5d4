#include "sources/log_roots.h"

#include "core/scan.h"

#include <sys/stat.h>

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace usagekit::LogRoots {

namespace fs = std::filesystem;

std::vector<fs::path> distinct(const std::vector<fs::path>& roots) {
    std::vector<fs::path> kept;
    std::vector<std::pair<dev_t, ino_t>> seen;
    for (const fs::path& root : roots) {
        struct stat info {};
        if (::stat(root.c_str(), &info) == 0) {
            const std::pair<dev_t, ino_t> identity{info.st_dev, info.st_ino};
            if (std::find(seen.begin(), seen.end(), identity) != seen.end()) continue;
            seen.push_back(identity);
        }
        kept.push_back(root);
    }
    return kept;
}

std::vector<std::string> files(const std::vector<fs::path>& roots,
                               std::initializer_list<std::string_view> named,
                               DirectoryIndex* index) {
    std::vector<std::string> found;
    for (const fs::path& root : distinct(roots))
        for (std::string& file : Scan::files(root, named, index))
            found.push_back(std::move(file));
    return found;
}

std::vector<std::string> withoutCompressedTwins(std::vector<std::string> files) {
    std::unordered_set<std::string_view> plain;
    for (const std::string& file : files)
        if (!file.ends_with(".zst")) plain.insert(file);
    std::vector<char> drop(files.size(), 0);
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string_view file = files[i];
        drop[i] = file.ends_with(".zst") && plain.contains(file.substr(0, file.size() - 4));
    }
    std::vector<std::string> kept;
    kept.reserve(files.size());
    for (size_t i = 0; i < files.size(); ++i)
        if (!drop[i]) kept.push_back(std::move(files[i]));
    return kept;
}

}  // namespace usagekit::LogRoots
