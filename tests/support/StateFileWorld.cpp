// SPDX-License-Identifier: Apache-2.0
#include "support/StateFileWorld.h"

#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeStateManager.h"
#include "support/Files.h"

std::string number(int value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string text(const std::string& content) {
    return number(static_cast<int>(content.size())) + content;
}

std::string session(const std::string& id, const std::string& program, const std::string& pid) {
    return text(id) + text(program) + text(pid);
}

StateFileWorld::StateFileWorld() {
    std::filesystem::remove_all(kState);
    std::filesystem::remove_all(kTemporary);
    unlink("/tmp/victim");
    fakes::FakeStateManager::reset();
    fakes::FakeLite::isDebug = false;
    forget();
}

void StateFileWorld::forget() {
    fakes::FakeDlog::clear();
    fakes::Actions::take();
}

std::string StateFileWorld::tableAfterOneMore() {
    unlink(kState);
    EXPECT_TRUE(m_control->Open("~", "", ""));
    return readFile(kState);
}

void StateFileWorld::load(const std::string& content) {
    writeFile(kState, content);
    m_control = std::make_unique<TCSessionControl>(m_manager);
}
