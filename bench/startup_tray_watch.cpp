// Watches an X display for a tray icon to be embedded in trayer, and says when it was,
// for the start-up benchmark. Polling `xwininfo -root -tree` costs a process and a few
// milliseconds a look, on a machine that is busy starting the application; this follows
// the window events instead and only asks the server about new windows.
//
//   startup_tray_watch <WM_CLASS> <width>x<height> <timeout ms>
//
// Prints "ready" once a tray host owns the tray selection and the watch is on: start the
// application after that. Then prints "shown <CLOCK_MONOTONIC nanoseconds> <window id>"
// when a window created since carries the WM_CLASS (instance or class), has the size,
// sits inside one of trayer's windows and is viewable. Exits 0 when shown; 1 when the
// time-out, counted from the start, passes first ("no tray host" or "timeout"); 2 on a
// bad command line or no display.

#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

// While a matching window waits only for an ancestor to be mapped, nothing reports that
// to us; it is looked at again this often.
constexpr std::chrono::milliseconds kRecheckInterval{1};
constexpr std::chrono::milliseconds kTrayHostPollInterval{10};
constexpr std::string_view kTrayHostClass = "trayer";

struct Wanted {
    std::string wmClass;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
};

template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, decltype(&std::free)>;

template <typename Reply>
ReplyPtr<Reply> own(Reply* reply) {
    return {reply, &std::free};
}

xcb_get_property_cookie_t askWMClass(xcb_connection_t* connection, xcb_window_t window) {
    return xcb_get_property(connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256);
}

// WM_CLASS holds two NUL-terminated strings, instance then class; either may match.
bool carriesClass(xcb_connection_t* connection, xcb_get_property_cookie_t cookie,
                  std::string_view wmClass) {
    const auto reply = own(xcb_get_property_reply(connection, cookie, nullptr));
    if (!reply || reply->format != 8) {
        return false;
    }
    const std::string_view value(
        static_cast<const char*>(xcb_get_property_value(reply.get())),
        static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
    for (std::size_t start = 0; start < value.size();) {
        const std::size_t end = std::min(value.find('\0', start), value.size());
        if (value.substr(start, end - start) == wmClass) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

class TrayWatch {
public:
    TrayWatch(xcb_connection_t* connection, xcb_window_t root, Wanted wanted)
        : connection_(connection), root_(root), wanted_(std::move(wanted)) {}

    // Waits for a tray host to own the screen's tray selection; false when none came.
    bool waitForTrayHost(int screenNumber, Clock::time_point deadline) {
        const std::string name = "_NET_SYSTEM_TRAY_S" + std::to_string(screenNumber);
        const auto atom = own(xcb_intern_atom_reply(
            connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()),
            nullptr));
        while (atom && !xcb_connection_has_error(connection_)) {
            const auto owner = own(xcb_get_selection_owner_reply(
                connection_, xcb_get_selection_owner(connection_, atom->atom), nullptr));
            if (owner && owner->owner != XCB_NONE) {
                return true;
            }
            if (Clock::now() >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(kTrayHostPollInterval);
        }
        return false;
    }

    // Asks for every window made from now on, and waits until the server has the request.
    void listen() {
        const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &mask);
        std::free(
            xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    // The embedded window, or nothing when the deadline passes first.
    std::optional<xcb_window_t> waitUntilShown(Clock::time_point deadline) {
        const pollfd watched{xcb_get_file_descriptor(connection_), POLLIN, 0};
        while (Clock::now() < deadline && !xcb_connection_has_error(connection_)) {
            while (const auto event = own(xcb_poll_for_event(connection_))) {
                if (const auto shown = handle(*event)) {
                    return shown;
                }
            }
            if (const auto shown = recheckAlmostShown()) {
                return shown;
            }
            const auto untilDeadline =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            const auto wait =
                almostShown_.empty() ? untilDeadline : std::min(untilDeadline, kRecheckInterval);
            pollfd ready = watched;
            poll(&ready, 1, static_cast<int>(std::max<std::int64_t>(wait.count(), 0)));
        }
        return std::nullopt;
    }

private:
    enum class Look { unrelated, almost, shown };

    std::optional<xcb_window_t> handle(const xcb_generic_event_t& event) {
        xcb_window_t window = XCB_NONE;
        switch (event.response_type & 0x7f) {
            case XCB_CREATE_NOTIFY: {
                window = reinterpret_cast<const xcb_create_notify_event_t&>(event).window;
                const std::uint32_t mask =
                    XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
                xcb_change_window_attributes(connection_, window, XCB_CW_EVENT_MASK, &mask);
                watched_.insert(window);
                break;
            }
            case XCB_REPARENT_NOTIFY:
                window = reinterpret_cast<const xcb_reparent_notify_event_t&>(event).window;
                break;
            case XCB_MAP_NOTIFY:
                window = reinterpret_cast<const xcb_map_notify_event_t&>(event).window;
                break;
            case XCB_CONFIGURE_NOTIFY:
                window = reinterpret_cast<const xcb_configure_notify_event_t&>(event).window;
                break;
            case XCB_PROPERTY_NOTIFY:
                window = reinterpret_cast<const xcb_property_notify_event_t&>(event).window;
                break;
            case XCB_DESTROY_NOTIFY:
                window = reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window;
                watched_.erase(window);
                almostShown_.erase(window);
                return std::nullopt;
            default:
                return std::nullopt;
        }
        // Looked at after the event was asked for, so a change made meanwhile is seen here.
        if (watched_.contains(window) && lookAt(window) == Look::shown) {
            return window;
        }
        return std::nullopt;
    }

    std::optional<xcb_window_t> recheckAlmostShown() {
        for (const xcb_window_t window : std::set(almostShown_)) {
            if (lookAt(window) == Look::shown) {
                return window;
            }
        }
        return std::nullopt;
    }

    // The questions go out together: one round trip's wait for all of them.
    Look lookAt(xcb_window_t window) {
        const auto classCookie = askWMClass(connection_, window);
        const auto geometryCookie = xcb_get_geometry(connection_, window);
        const auto treeCookie = xcb_query_tree(connection_, window);
        const auto attributesCookie = xcb_get_window_attributes(connection_, window);
        const bool classMatches = carriesClass(connection_, classCookie, wanted_.wmClass);
        const auto geometry = own(xcb_get_geometry_reply(connection_, geometryCookie, nullptr));
        const auto tree = own(xcb_query_tree_reply(connection_, treeCookie, nullptr));
        const auto attributes =
            own(xcb_get_window_attributes_reply(connection_, attributesCookie, nullptr));

        almostShown_.erase(window);
        if (!classMatches || !geometry || !tree || !attributes ||
            geometry->width != wanted_.width || geometry->height != wanted_.height ||
            tree->parent == root_ || !insideTrayHost(tree->parent)) {
            return Look::unrelated;
        }
        if (attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
            almostShown_.insert(window);
            return Look::almost;
        }
        return Look::shown;
    }

    bool insideTrayHost(xcb_window_t window) {
        while (window != root_ && window != XCB_NONE) {
            const auto classCookie = askWMClass(connection_, window);
            const auto treeCookie = xcb_query_tree(connection_, window);
            const bool isTrayHost = carriesClass(connection_, classCookie, kTrayHostClass);
            const auto tree = own(xcb_query_tree_reply(connection_, treeCookie, nullptr));
            if (isTrayHost) {
                return true;
            }
            window = tree ? tree->parent : XCB_NONE;
        }
        return false;
    }

    xcb_connection_t* connection_;
    xcb_window_t root_;
    Wanted wanted_;
    std::set<xcb_window_t> watched_;      // created since listen()
    std::set<xcb_window_t> almostShown_;  // all but viewable
};

std::optional<Wanted> parseWanted(std::string_view wmClass, const char* size) {
    unsigned width = 0;
    unsigned height = 0;
    char rest = 0;
    if (wmClass.empty() || std::sscanf(size, "%ux%u%c", &width, &height, &rest) != 2 ||
        width == 0 || height == 0 || width > 0xffff || height > 0xffff) {
        return std::nullopt;
    }
    return Wanted{std::string(wmClass), static_cast<std::uint16_t>(width),
                  static_cast<std::uint16_t>(height)};
}

}  // namespace

int main(int argc, char** argv) {
    const std::optional<Wanted> wanted = argc == 4 ? parseWanted(argv[1], argv[2]) : std::nullopt;
    char* end = nullptr;
    const long timeoutMs = argc == 4 ? std::strtol(argv[3], &end, 10) : 0;
    if (!wanted || end == argv[3] || *end != '\0' || timeoutMs <= 0) {
        std::fprintf(stderr, "usage: %s <WM_CLASS> <width>x<height> <timeout ms>\n", argv[0]);
        return 2;
    }

    int screenNumber = 0;
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(nullptr, &screenNumber), &xcb_disconnect);
    if (xcb_connection_has_error(connection.get())) {
        std::fprintf(stderr, "startup_tray_watch: cannot open the display\n");
        return 2;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
    for (int i = 0; i < screenNumber; ++i) {
        xcb_screen_next(&screens);
    }

    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    TrayWatch watch(connection.get(), screens.data->root, *wanted);
    if (!watch.waitForTrayHost(screenNumber, deadline)) {
        std::puts("no tray host");
        return 1;
    }
    watch.listen();
    std::puts("ready");
    std::fflush(stdout);

    const auto shown = watch.waitUntilShown(deadline);
    if (!shown) {
        std::puts("timeout");
        return 1;
    }
    const auto now =
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch());
    std::printf("shown %lld 0x%x\n", static_cast<long long>(now.count()), *shown);
    return 0;
}
