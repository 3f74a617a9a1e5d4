#include "shell/autostart.h"

#include "core/store.h"

#include <QFile>
#include <QStandardPaths>

#include <sstream>
#include <system_error>

namespace tally {

namespace {

namespace fs = std::filesystem;

fs::path onDisk(const QString& path) {
    return fs::path(QFile::encodeName(path).toStdString());
}

// TryExec keeps a session quiet when the entry outlives an uninstalled Tally.
std::string entry() {
    std::string text =
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Tally\n"
        "Comment=Tokens and cost of your AI coding tools, in the tray\n"
        "Icon=app.tally.Tally\n"
        "TryExec=tally\n"
        "Terminal=false\n"
        "X-GNOME-Autostart-enabled=true\n";
    text += "Exec=tally " + std::string(Autostart::hiddenArgument) + "\n";
    return text;
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Whether the [Desktop Entry] group switches the entry off.
bool switchedOff(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    bool inEntry = false;
    while (std::getline(lines, line)) {
        line = trimmed(line);
        if (line.starts_with('[')) {
            inEntry = line == "[Desktop Entry]";
            continue;
        }
        const size_t equals = line.find('=');
        if (!inEntry || equals == std::string::npos) continue;
        const std::string key = trimmed(line.substr(0, equals));
        const std::string value = trimmed(line.substr(equals + 1));
        if ((key == "Hidden" && value == "true") ||
            (key == "X-GNOME-Autostart-enabled" && value == "false"))
            return true;
    }
    return false;
}

}  // namespace

QString Autostart::path() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/app.tally.Tally.desktop");
}

bool Autostart::isEnabled() {
    const std::optional<std::string> text = usagekit::Store::readFile(onDisk(path()));
    return text && !switchedOff(*text);
}

bool Autostart::setEnabled(bool enabled) {
    const fs::path file = onDisk(path());
    if (enabled) {
        try {
            usagekit::Store::saveData(entry(), file);
        } catch (const std::system_error&) {
            return false;
        }
    } else {
        std::error_code ignored;
        fs::remove(file, ignored);
    }
    return isEnabled() == enabled;
}

}  // namespace tally
