// SPDX-License-Identifier: Apache-2.0
#include "support/PrivateBus.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

// Everybody may do everything here; who may do what on the set is the business of its policy files.
constexpr const char* kPolicy =
    "<policy context=\"default\">"
    "<allow user=\"*\"/><allow own=\"*\"/><allow send_type=\"method_call\"/><allow send_type=\"signal\"/>"
    "<allow send_requested_reply=\"true\"/><allow receive_requested_reply=\"true\"/>"
    "<allow receive_type=\"method_call\"/><allow receive_type=\"signal\"/><allow eavesdrop=\"true\"/>"
    "</policy>";

}  // namespace

PrivateBus::PrivateBus(bool start) {
    std::filesystem::create_directories(m_directory);
    std::ofstream config(m_directory + "/bus.conf");
    config << "<busconfig><type>system</type><listen>" << m_address << "</listen><auth>EXTERNAL</auth>"
           << kPolicy << "<limit name=\"max_connections_per_user\">16384</limit>"
           << "<limit name=\"max_completed_connections\">16384</limit></busconfig>\n";
    config.close();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", m_address.c_str(), 1);
    if (start) {
        this->start();
    }
}

PrivateBus::~PrivateBus() {
    stop();
}

void PrivateBus::start() {
    std::array<int, 2> ready{};
    if (pipe2(ready.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("PrivateBus: pipe2 failed");
    }
    // The daemon prints its address when it listens.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], 3);
    std::string config = "--config-file=" + m_directory + "/bus.conf";
    std::array<char*, 6> arguments{const_cast<char*>("dbus-daemon"), config.data(),
                                   const_cast<char*>("--nofork"),    const_cast<char*>("--print-address=3"),
                                   const_cast<char*>("--nopidfile"), nullptr};
    const int error = posix_spawnp(&m_pid, "dbus-daemon", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ready[1]);
    char byte = 0;
    const ssize_t got = error == 0 ? read(ready[0], &byte, 1) : -1;
    close(ready[0]);
    if (got != 1) {
        throw std::runtime_error("PrivateBus: dbus-daemon did not start");
    }
}

void PrivateBus::stop() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
        unlink((m_directory + "/socket").c_str());
    }
}

void PrivateBus::pause() const {
    kill(m_pid, SIGSTOP);
}

void PrivateBus::goOn() const {
    kill(m_pid, SIGCONT);
}
