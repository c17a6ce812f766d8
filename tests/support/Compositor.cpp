// SPDX-License-Identifier: Apache-2.0
#include "support/Compositor.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <wayland-extension/tizen-zel-notifier-server-protocol.h>
#include <wayland-server.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

constexpr const char* kRuntime = "/tmp/compositor";
constexpr int kTopMost = 4242;

void pointDisplayAt(const char* name) {
    std::filesystem::create_directories(kRuntime);
    std::filesystem::permissions(kRuntime, std::filesystem::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", kRuntime, 1);
    setenv("WAYLAND_DISPLAY", name, 1);
}

// The payload of an event, which lives as long as the call that sends it.
class Payload {
public:
    explicit Payload(const std::vector<std::int32_t>& integers) {
        wl_array_init(&m_array);
        const std::size_t size = integers.size() * sizeof integers.front();
        if (size > 0) {
            std::memcpy(wl_array_add(&m_array, size), integers.data(), size);
        }
    }
    ~Payload() { wl_array_release(&m_array); }
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    wl_array* get() { return &m_array; }

private:
    wl_array m_array{};
};

}  // namespace

struct Compositor::Server {
    Compositor* self = nullptr;
    Manners manners;
    wl_display* display = nullptr;
    wl_global* global = nullptr;
    wl_resource* notifier = nullptr;
    // What libwayland calls back with: a listener, and behind it whose it is.
    struct ClientListener {
        wl_listener listener;
        Server* server;
    };
    ClientListener clientCreated{};
    int wakeUp = -1;
    wl_event_source* wakeUpSource = nullptr;
    std::atomic<bool> stop{false};
    std::atomic<int> boundVersion{0};
    std::atomic<int> topMostRequests{0};
    std::mutex mutex;
    std::deque<std::function<void()>> tasks;
    std::function<void(Compositor&)> topMostHook;
    std::thread thread;

    // Runs a task on the server's thread and waits for it; at once when this is that thread.
    void run(const std::function<void()>& task) {
        if (std::this_thread::get_id() == thread.get_id()) {
            task();
            return;
        }
        std::promise<void> done;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            tasks.emplace_back([&] {
                task();
                wl_display_flush_clients(display);
                done.set_value();
            });
        }
        eventfd_write(wakeUp, 1);
        done.get_future().wait();
    }

    void runTasks() {
        std::deque<std::function<void()>> due;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            due.swap(tasks);
        }
        for (const auto& task : due) {
            task();
        }
    }

    void serve() {
        while (!stop) {
            wl_event_loop_dispatch(wl_display_get_event_loop(display), -1);
            wl_display_flush_clients(display);
        }
    }

    static int onWakeUp(int fd, std::uint32_t /*mask*/, void* data) {
        eventfd_t count = 0;
        eventfd_read(fd, &count);
        static_cast<Server*>(data)->runTasks();
        return 0;
    }

    static void onClientCreated(wl_listener* listener, void* data) {
        ClientListener* created = wl_container_of(listener, created, listener);
        Server* server = created->server;
        if (server->manners.throwsOutAtConnection) {
            wl_event_loop_add_idle(wl_display_get_event_loop(server->display), throwOut, data);
        }
    }

    static void throwOut(void* client) { wl_client_destroy(static_cast<wl_client*>(client)); }

    static void onTopMostRequest(wl_client* /*client*/, wl_resource* resource) {
        auto* server = static_cast<Server*>(wl_resource_get_user_data(resource));
        ++server->topMostRequests;
        std::function<void(Compositor&)> hook;
        {
            const std::lock_guard<std::mutex> lock(server->mutex);
            hook = server->topMostHook;
        }
        if (hook) {
            hook(*server->self);
        }
        tizen_zel_notifier_send_top_most_client(resource, kTopMost);
    }

    static void onNotifierGone(wl_resource* resource) {
        static_cast<Server*>(wl_resource_get_user_data(resource))->notifier = nullptr;
    }

    static void onBind(wl_client* client, void* data, std::uint32_t version, std::uint32_t id) {
        static const struct tizen_zel_notifier_interface requests = {onTopMostRequest};
        auto* server = static_cast<Server*>(data);
        server->boundVersion = static_cast<int>(version);
        server->notifier =
            wl_resource_create(client, &tizen_zel_notifier_interface, static_cast<int>(version), id);
        wl_resource_set_implementation(server->notifier, &requests, server, onNotifierGone);
        if (server->manners.throwsOutAtBind) {
            // At once, so that the answer to the client's second roundtrip does not get through.
            shutdown(wl_client_get_fd(client), SHUT_RDWR);
            wl_event_loop_add_idle(wl_display_get_event_loop(server->display), throwOut, client);
        }
    }
};

Compositor::Compositor() : Compositor(Manners()) {}

Compositor::Compositor(const Manners& manners) : m_server(std::make_unique<Server>()) {
    Server& server = *m_server;
    server.self = this;
    server.manners = manners;
    pointDisplayAt("compositor");
    server.display = wl_display_create();
    if (wl_display_add_socket(server.display, "compositor") != 0) {
        throw std::runtime_error("Compositor: no socket");
    }
    if (manners.notifierVersion > 0) {
        // A later version of the protocol than the one compiled in: what is advertised is what counts here.
        static wl_interface advertised;
        advertised = tizen_zel_notifier_interface;
        advertised.version = manners.notifierVersion;
        server.global =
            wl_global_create(server.display, &advertised, manners.notifierVersion, &server, Server::onBind);
    }
    server.clientCreated.listener.notify = Server::onClientCreated;
    server.clientCreated.server = &server;
    wl_display_add_client_created_listener(server.display, &server.clientCreated.listener);
    server.wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    server.wakeUpSource = wl_event_loop_add_fd(wl_display_get_event_loop(server.display), server.wakeUp,
                                               WL_EVENT_READABLE, Server::onWakeUp, &server);
    server.thread = std::thread([&server] { server.serve(); });
}

Compositor::~Compositor() {
    m_server->stop = true;
    eventfd_write(m_server->wakeUp, 1);
    m_server->thread.join();
    wl_event_source_remove(m_server->wakeUpSource);
    wl_display_destroy_clients(m_server->display);
    wl_display_destroy(m_server->display);
    close(m_server->wakeUp);
}

void Compositor::nowhere() {
    pointDisplayAt("nobody-listens-here");
}

void Compositor::sendClientEvent(int kind, const std::vector<std::int32_t>& payload) {
    m_server->run([&] {
        Payload array(payload);
        tizen_zel_notifier_send_client_event(m_server->notifier, kind, array.get());
    });
}

void Compositor::sendReadyVisibility(int visibility, const std::vector<std::int32_t>& payload) {
    m_server->run([&] {
        Payload array(payload);
        tizen_zel_notifier_send_ready_visibility_change(m_server->notifier, visibility, array.get());
    });
}

void Compositor::sendAsyncVisibility(int visibility, const std::vector<std::int32_t>& payload) {
    m_server->run([&] {
        Payload array(payload);
        tizen_zel_notifier_send_async_visibility_change(m_server->notifier, visibility, array.get());
    });
}

void Compositor::sendClientsInfo(const std::vector<std::int32_t>& payload) {
    m_server->run([&] {
        Payload array(payload);
        tizen_zel_notifier_send_clients_info(m_server->notifier, array.get());
    });
}

void Compositor::sendTopMost(int clientId) {
    m_server->run([&] { tizen_zel_notifier_send_top_most_client(m_server->notifier, clientId); });
}

void Compositor::withdrawNotifier() {
    m_server->run([&] { wl_global_remove(m_server->global); });
}

void Compositor::onTopMostRequest(std::function<void(Compositor&)> hook) {
    const std::lock_guard<std::mutex> lock(m_server->mutex);
    m_server->topMostHook = std::move(hook);
}

int Compositor::boundVersion() const {
    return m_server->boundVersion;
}

int Compositor::topMostRequests() const {
    return m_server->topMostRequests;
}
