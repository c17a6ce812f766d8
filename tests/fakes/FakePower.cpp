// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakePower.h"

#include <dd-power.h>
#include <tvtimer.h>

#include <array>
#include <ctime>
#include <optional>
#include <string>

#include "fakes/Actions.h"

/** A timer of this fake. */
struct tvtimer_info_s {
    std::optional<int> id;
};

namespace fakes {
namespace {

using Callback = int (*)(int, void*);

const char* withData(const void* userData) {
    return userData == nullptr ? "" : " with data";
}

// One kind of power event with its only subscriber.
struct Subscription {
    const char* name;
    Callback callback;
    void* userData;

    int subscribe(Callback wanted, void* data) {
        Actions::add(std::string("subscribe ") + name + withData(data));
        if (FakePower::subscribeResult == 0) {
            callback = wanted;
            userData = data;
        }
        return FakePower::subscribeResult;
    }

    int unsubscribe(Callback unwanted) {
        Actions::add(std::string("unsubscribe ") + name);
        if (callback != unwanted) {
            return -1;
        }
        callback = nullptr;
        return 0;
    }

    int call() const { return callback == nullptr ? -100 : callback(0, userData); }
};

Subscription standbySubscription{"standby", nullptr, nullptr};
Subscription earlyWakeUpSubscription{"early_wakeup", nullptr, nullptr};

tvtimer_scheduled_cb completion = nullptr;
void* completionData = nullptr;

void complete(tvtimer_info_s* info) {
    completion(info, completionData);
}

}  // namespace

int FakePower::subscribeResult = 0;
int FakePower::scheduleResult = 0;

std::size_t FakePower::standbySubscribers() {
    return standbySubscription.callback == nullptr ? 0 : 1;
}

std::size_t FakePower::earlyWakeUpSubscribers() {
    return earlyWakeUpSubscription.callback == nullptr ? 0 : 1;
}

const void* FakePower::earlyWakeUpData() {
    return earlyWakeUpSubscription.userData;
}

int FakePower::standby() {
    return standbySubscription.call();
}

int FakePower::earlyWakeUp() {
    return earlyWakeUpSubscription.call();
}

void FakePower::armed(int timerId) {
    complete(new tvtimer_info_s{timerId});
}

void FakePower::armedWithoutId() {
    complete(new tvtimer_info_s{std::nullopt});
}

void FakePower::notArmed() {
    complete(nullptr);
}

void FakePower::reset() {
    standbySubscription.callback = nullptr;
    earlyWakeUpSubscription.callback = nullptr;
    completion = nullptr;
    subscribeResult = 0;
    scheduleResult = 0;
}

}  // namespace fakes

using fakes::Actions;
using fakes::FakePower;

int device_power_subscribe_standby(int (*callback)(int, void*), void* userData) {
    return fakes::standbySubscription.subscribe(callback, userData);
}

int device_power_unsubscribe_standby(int (*callback)(int, void*)) {
    return fakes::standbySubscription.unsubscribe(callback);
}

int device_power_subscribe_early_wakeup(int (*callback)(int, void*), void* userData) {
    return fakes::earlyWakeUpSubscription.subscribe(callback, userData);
}

int device_power_unsubscribe_early_wakeup(int (*callback)(int, void*)) {
    return fakes::earlyWakeUpSubscription.unsubscribe(callback);
}

int tvtimer_schedule_timer_at_date_async(int type, struct tm date, int weekdays, int flags,
                                         tvtimer_scheduled_cb callback, void* userData) {
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &date);
    Actions::add("schedule " + std::to_string(type) + " " + text.data() +
                 " dst=" + std::to_string(date.tm_isdst) + " " + std::to_string(weekdays) + " " +
                 std::to_string(flags) + fakes::withData(userData));
    fakes::completion = callback;
    fakes::completionData = userData;
    return FakePower::scheduleResult;
}

int tvtimer_cancel_timer_by_id_async(int id) {
    Actions::add("cancel " + std::to_string(id));
    return 0;
}

int tvtimer_get_id(tvtimer_info_s* info, int* id) {
    if (!info->id) {
        return -1;
    }
    *id = *info->id;
    return 0;
}

void tvtimer_free(tvtimer_info_s* info) {
    Actions::add("free");
    delete info;
}
