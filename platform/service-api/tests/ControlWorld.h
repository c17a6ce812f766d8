// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The two whom the control of the service talks to, scripted: systemd and the service.
 */
#ifndef SERVICE_API_TESTS_CONTROL_WORLD_H
#define SERVICE_API_TESTS_CONTROL_WORLD_H

#include <sdbus-c++/sdbus-c++.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "BusThread.h"

/** What systemd tells of the unit. A job of 0 is none. */
struct Unit {
    std::string activeState;
    std::uint32_t job;
};

/**
 * A systemd with the one unit. Each look of a client at the unit begins with LoadUnit; `onLook` runs then,
 * with the number of the look, and gives what the unit is from now on. `afterFirstRead` runs in each look
 * when one of the two properties has been read and not yet the other.
 */
class FakeSystemd {
public:
    using OnLook = std::function<Unit(int look)>;
    using AfterFirstRead = std::function<Unit()>;

    explicit FakeSystemd(OnLook onLook, AfterFirstRead afterFirstRead = nullptr)
        : m_onLook(std::move(onLook)), m_afterFirstRead(std::move(afterFirstRead)) {
        std::vector<std::unique_ptr<sdbus::IObject>> objects;
        objects.push_back(manager());
        objects.push_back(unit());
        m_bus.serve("org.freedesktop.systemd1", std::move(objects));
    }

    /** A unit that stays as it is. */
    explicit FakeSystemd(const Unit& unit) : FakeSystemd([unit](int) { return unit; }) {}

    /** How often somebody has begun to look at the unit. */
    int looks() const { return m_looks; }

private:
    std::unique_ptr<sdbus::IObject> manager() {
        auto object = sdbus::createObject(m_bus.connection(), "/org/freedesktop/systemd1");
        object->registerMethod("LoadUnit")
            .onInterface("org.freedesktop.systemd1.Manager")
            .implementedAs([this](const std::string& name) {
                if (name != "zel_deamon.service") {
                    throw sdbus::Error("org.freedesktop.systemd1.NoSuchUnit", name);
                }
                ++m_looks;
                m_reads = 0;
                m_state = m_onLook(m_looks);
                return sdbus::ObjectPath("/org/freedesktop/systemd1/unit/zel_5fdeamon_2eservice");
            });
        object->finishRegistration();
        return object;
    }

    std::unique_ptr<sdbus::IObject> unit() {
        auto object =
            sdbus::createObject(m_bus.connection(), "/org/freedesktop/systemd1/unit/zel_5fdeamon_2eservice");
        object->registerProperty("ActiveState")
            .onInterface("org.freedesktop.systemd1.Unit")
            .withGetter([this] {
                std::string state = m_state.activeState;
                countRead();
                return state;
            });
        object->registerProperty("Job").onInterface("org.freedesktop.systemd1.Unit").withGetter([this] {
            const std::uint32_t job = m_state.job;
            countRead();
            return sdbus::Struct<std::uint32_t, sdbus::ObjectPath>{job, sdbus::ObjectPath("/")};
        });
        object->finishRegistration();
        return object;
    }

    void countRead() {
        if (++m_reads == 1 && m_afterFirstRead) {
            m_state = m_afterFirstRead();
        }
    }

    OnLook m_onLook;
    AfterFirstRead m_afterFirstRead;
    std::atomic<int> m_looks{0};
    // Of the thread.
    Unit m_state{"inactive", 0};
    int m_reads = 0;
    // Last, so that its thread ends before the rest.
    BusThread m_bus;
};

/** The service: answers its two methods by functions of the test's, which run on its own thread. */
class FakeService {
public:
    /** Answers, or doesn't, or throws sdbus::Error. */
    using Script = std::function<void(sdbus::MethodCall& call)>;

    explicit FakeService(Script script, const std::string& notifyReply = "i",
                         const std::string& terminateReply = "iaiib")
        : m_script(std::move(script)) {
        m_name = m_bus.connection().getUniqueName();
        auto object = sdbus::createObject(m_bus.connection(), "/com/brenlow/ZELDaemon");
        offer(*object, "Notify", "iiii", notifyReply);
        offer(*object, "Terminate", "", terminateReply);
        object->finishRegistration();
        std::vector<std::unique_ptr<sdbus::IObject>> objects;
        objects.push_back(std::move(object));
        m_bus.serve("com.brenlow.ZELDaemon", std::move(objects));
    }

    /** A service that answers every Notify with one result. */
    explicit FakeService(std::int32_t result)
        : FakeService([result](sdbus::MethodCall& call) {
              auto reply = call.createReply();
              reply << result;
              reply.send();
          }) {}

    /** Its unique name. */
    const std::string& name() const { return m_name; }

    /** Makes it leave the bus after what it is doing. */
    void leave() { m_bus.leave(); }

private:
    void offer(sdbus::IObject& object, const char* method, const char* arguments, const std::string& reply) {
        object.registerMethod("com.brenlow.IZelControl", method, arguments, reply,
                              [this](sdbus::MethodCall call) { m_script(call); });
    }

    std::string m_name;
    Script m_script;
    // Last, so that its thread ends before the rest.
    BusThread m_bus;
};

#endif
