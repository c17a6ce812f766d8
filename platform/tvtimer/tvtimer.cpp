// SPDX-License-Identifier: Apache-2.0
// Timers on Linux: transient units of systemd, started and stopped by a thread of the library.
#include "tvtimer.h"

#include <SleepHold.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Log.h"
#include "TaskThread.h"
#include "TimerUnits.h"

struct tvtimer_info_s {
    int id;
};

namespace {

// The years that systemd knows.
constexpr int kFirstYear = 1970 - 1900;
constexpr int kLastYear = 2199 - 1900;

// Somebody waits to be told of a timer.
struct Request {
    std::string date;
    tvtimer_scheduled_cb callback;
    void* userData;
    std::unique_ptr<tvtimer_info_s> info;
};

// Never destroyed: it runs as long as the process lives.
TaskThread& thread() {
    static auto* const instance = new TaskThread;
    return *instance;
}

std::string textOf(const tm& date) {
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &date);
    return text.data();
}

// The date as systemd has it; nothing when there is no such date.
std::optional<std::string> calendarOf(const tm& date) {
    if (date.tm_year < kFirstYear || date.tm_year > kLastYear) {
        return std::nullopt;
    }
    tm normal = date;
    timegm(&normal);
    const std::string text = textOf(date);
    return textOf(normal) == text ? std::optional(text) : std::nullopt;
}

int startTimer(const std::string& date) {
    TimerUnits units;
    try {
        return units.start(date, true);
    } catch (const std::exception& error) {
        logError("no timer for " + date +
                 " that wakes the machine, trying one that does not: " + error.what());
        return units.start(date, false);
    }
}

void carryOut(Request& request) {
    try {
        request.info->id = startTimer(request.date);
        logInfo("timer " + std::to_string(request.info->id) + " is set for " + request.date);
    } catch (const std::exception& error) {
        logError("no timer is set for " + request.date + ": " + error.what());
        request.info.reset();
    }
    request.callback(request.info.release(), request.userData);
}

void cancel(int id) {
    const std::string timer = "timer " + std::to_string(id);
    try {
        logInfo(timer + (TimerUnits().stop(id) ? " is cancelled" : " is not there"));
    } catch (const std::exception& error) {
        logError(timer + " may still go off: " + error.what());
    }
}

// Has the thread do what may take long, and the machine stay awake until it is done.
void later(std::function<void()> task) {
    thread().add([hold = SleepHold::share(), task = std::move(task)] { task(); });
}

int refuse(const std::string& why) {
    logError(why);
    return -EINVAL;
}

// Runs what may throw for want of memory or threads; the caller can't be thrown at.
template <typename Function>
int guarded(Function function) {
    try {
        return function();
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

}  // namespace

int tvtimer_schedule_timer_at_date_async(int type, struct tm date, int weekdays, int flags,
                                         tvtimer_scheduled_cb callback, void* user_data) {
    return guarded([&] {
        if (type != TVTIMER_TYPE_WAKE_UP || weekdays != TVTIMER_EVERY_DAY || flags != 0) {
            return refuse("there is no timer of type " + std::to_string(type) + ", weekdays " +
                          std::to_string(weekdays) + " and flags " + std::to_string(flags));
        }
        if (callback == nullptr) {
            return refuse("there is nobody to tell of a timer");
        }
        const std::optional<std::string> calendar = calendarOf(date);
        if (!calendar) {
            return refuse("a timer has a date that does not exist");
        }
        const auto request = std::make_shared<Request>(
            Request{*calendar, callback, user_data, std::make_unique<tvtimer_info_s>()});
        later([request] { carryOut(*request); });
        return 0;
    });
}

int tvtimer_cancel_timer_by_id_async(int id) {
    return guarded([id] {
        if (id <= 0) {
            return refuse("no timer has the id " + std::to_string(id));
        }
        later([id] { cancel(id); });
        return 0;
    });
}

int tvtimer_get_id(tvtimer_info_s* info, int* id) {
    if (info == nullptr || id == nullptr) {
        return -EINVAL;
    }
    *id = info->id;
    return 0;
}

void tvtimer_free(tvtimer_info_s* info) {
    delete info;
}
