// Whether Tally starts when the user logs in: an XDG autostart entry at
// ${XDG_CONFIG_HOME:-~/.config}/autostart/app.tally.Tally.desktop that starts Tally hidden in
// the tray (`tally --hidden`).
//
// Nothing is cached: every call reads or changes the disk, so a Settings toggle shows what is
// there even after the user deleted the entry or a desktop's startup tool switched it off.
// Any thread may call; each call does a few small file operations.
#pragma once

#include <QString>

namespace tally {

class Autostart {
  public:
    // The argument the entry starts Tally with.
    static constexpr const char* hiddenArgument = "--hidden";

    // Where the entry lives, from XDG_CONFIG_HOME and HOME as they are now.
    static QString path();
    // The entry exists and is not switched off inside it (Hidden=true, or
    // X-GNOME-Autostart-enabled=false, which desktops' startup-application tools write).
    static bool isEnabled();
    // Writes the entry (replaced atomically, so a crash leaves the old one or the new one)
    // or removes it. Returns whether the disk now says `enabled`.
    static bool setEnabled(bool enabled);
};

}  // namespace tally
