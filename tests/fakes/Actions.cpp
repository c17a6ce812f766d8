// SPDX-License-Identifier: Apache-2.0
#include "fakes/Actions.h"

#include <mutex>
#include <utility>

namespace fakes {
namespace {

std::mutex mutex;
std::vector<std::string> actions;

}  // namespace

void Actions::add(std::string action) {
    const std::lock_guard<std::mutex> lock(mutex);
    actions.push_back(std::move(action));
}

std::vector<std::string> Actions::take() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(actions, {});
}

}  // namespace fakes
