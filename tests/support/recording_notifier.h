// A Notifier that keeps what it is asked to do, for tests of budget and plan-limit
// announcements. `authorized` says what isAuthorized() answers.
#pragma once

#include "limits/notifier.h"

#include <vector>

namespace usagekit::testing {

class RecordingNotifier : public Notifier {
  public:
    explicit RecordingNotifier(bool authorized = true) : authorized(authorized) {}

    void requestAuthorization() override { ++authorizationRequests; }
    bool isAuthorized() override { return authorized; }
    void post(const Notification& notification) override { posted.push_back(notification); }

    bool authorized;
    int authorizationRequests = 0;
    std::vector<Notification> posted;
};

}  // namespace usagekit::testing
