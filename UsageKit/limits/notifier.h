// The one thing UsageKit needs from the desktop's notification service. The shell
// implements it over D-Bus; tests implement it to record what they receive. Budget and
// plan-limit announcements call it from whatever thread they run on, one call at a time,
// so an implementation that must work on its own thread hands the work over itself.
#pragma once

#include <string>

namespace usagekit {

struct Notification {
    // A later notification with the same identifier replaces the earlier one on screen.
    std::string identifier;
    std::string title;
    std::string body;

    bool operator==(const Notification&) const = default;
};

class Notifier {
  public:
    virtual ~Notifier() = default;

    // Asks the user for permission to show alerts when they have not decided yet. Callers
    // do not wait for the answer: delivery is left to the service.
    virtual void requestAuthorization() = 0;
    // True when alerts may be shown now (allowed outright or provisionally). Never prompts.
    virtual bool isAuthorized() = 0;
    // Shows the notification at once, without a trigger.
    virtual void post(const Notification& notification) = 0;
};

}  // namespace usagekit
