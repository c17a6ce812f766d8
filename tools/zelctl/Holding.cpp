// SPDX-License-Identifier: Apache-2.0
#include "Holding.h"

#include <cstdio>
#include <exception>
#include <utility>

namespace zelctl {

namespace {

void complain(const std::exception& problem) {
    std::fprintf(stderr, "zelctl: what was held could not be closed in good order: %s\n", problem.what());
}

}  // namespace

Holding::~Holding() {
    try {
        close();
    } catch (const Trouble& trouble) {
        // With the bus everything went that it could have closed.
        if (trouble.status() != kNoBus) {
            complain(trouble);
        }
    } catch (const std::exception& problem) {
        complain(problem);
    }
}

bool Holding::openSession(std::chrono::seconds limit) {
    const bool isThere = m_daemon.open(limit);
    m_hasSession = true;
    return isThere;
}

void Holding::openTrace(std::int64_t id, const std::string& text, Language language) {
    m_trace = id;
    m_daemon.openTrace(id, text, language);
}

void Holding::close() {
    if (const std::optional<std::int64_t> trace = std::exchange(m_trace, std::nullopt)) {
        m_daemon.closeTrace(*trace);
    }
    if (std::exchange(m_hasSession, false)) {
        m_daemon.close();
    }
}

}  // namespace zelctl
