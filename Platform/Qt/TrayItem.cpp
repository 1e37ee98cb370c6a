#include "Platform/Qt/TrayItem.h"

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

constexpr const char *ownName = "com.veltrion.tarnlink.menu";
constexpr const char *ownPath = "/com/veltrion/tarnlink/menu";
constexpr const char *application = "org.freedesktop.Application";
constexpr const char *itemPath = "/StatusNotifierItem";
constexpr const char *itemInterface = "org.kde.StatusNotifierItem";
constexpr const char *menuPath = "/MenuBar";
constexpr const char *menuInterface = "com.canonical.dbusmenu";
constexpr const char *watcher = "org.kde.StatusNotifierWatcher";
constexpr const char *watcherPath = "/StatusNotifierWatcher";
constexpr std::uint64_t answerLimit = 3'000'000; // microseconds

/// Fills a message; after the first error it does nothing any more.
class Writer {
public:
    explicit Writer(sd_bus_message *message) : message_(message) {}

    Writer &open(char type, const char *contents) {
        return then([&] { return sd_bus_message_open_container(message_, type, contents); });
    }
    Writer &close() {
        return then([&] { return sd_bus_message_close_container(message_); });
    }
    Writer &append(const char *types, auto... values) {
        return then([&] { return sd_bus_message_append(message_, types, values...); });
    }
    Writer &bytes(const std::vector<std::uint8_t> &values) {
        return then([&] { return sd_bus_message_append_array(message_, 'y', values.data(), values.size()); });
    }
    /// As sd-bus returns it.
    int result() const { return result_; }

private:
    Writer &then(const auto &step) {
        if (result_ >= 0)
            result_ = step();
        return *this;
    }

    sd_bus_message *message_;
    int result_ = 0;
};

/// Answers a call with what is written by `fill`.
int answer(sd_bus_message *call, const auto &fill) {
    sd_bus_message *made = nullptr;
    if (const int result = sd_bus_message_new_method_return(call, &made); result < 0)
        return result;
    const BusMessage reply(made);
    Writer writer(made);
    fill(writer);
    return writer.result() < 0 ? writer.result() : sd_bus_send(nullptr, made, nullptr);
}

} // namespace

/// What the bus calls; `data` is always the item.
struct TrayItem::Protocol {
    static TrayItem &self(void *data) { return *static_cast<TrayItem *>(data); }

    static int launched(sd_bus_message *call, void *data, sd_bus_error *) {
        self(data).handlers_.launched();
        return sd_bus_reply_method_return(call, "");
    }
    static int pressed(sd_bus_message *call, void *data, sd_bus_error *) {
        std::int32_t x = 0, y = 0;
        if (const int result = sd_bus_message_read(call, "ii", &x, &y); result < 0)
            return result;
        self(data).handlers_.pressed(x, y);
        return sd_bus_reply_method_return(call, "");
    }
    static int nothing(sd_bus_message *call, void *, sd_bus_error *) {
        return sd_bus_reply_method_return(call, "");
    }

    static int property(sd_bus *, const char *, const char *interface, const char *property,
                        sd_bus_message *reply, void *data, sd_bus_error *) {
        const std::string_view name(property);
        const bool isMenu = std::string_view(interface) == menuInterface;
        const auto &content = self(data).content_;
        if (name == "Status")
            return sd_bus_message_append(reply, "s", isMenu ? "normal" : "Active");
        if (name == "Category")
            return sd_bus_message_append(reply, "s", "SystemServices");
        if (name == "Id")
            return sd_bus_message_append(reply, "s", ownName);
        if (name == "Title")
            return sd_bus_message_append(reply, "s", content.toolTip.c_str());
        if (name == "IconName")
            return sd_bus_message_append(reply, "s", content.iconName.c_str());
        if (name == "TextDirection")
            return sd_bus_message_append(reply, "s", "ltr");
        if (name == "Version")
            return sd_bus_message_append(reply, "u", 3U);
        if (name == "Menu")
            return sd_bus_message_append(reply, "o", menuPath);
        if (name == "ItemIsMenu")
            return sd_bus_message_append(reply, "b", 0);
        Writer writer(reply);
        if (name == "IconPixmap") {
            appendImages(writer, content.images);
            return writer.result();
        }
        // ToolTip: icon, its pixels, title and text.
        writer.open('r', "sa(iiay)ss").append("s", "");
        appendImages(writer, {});
        return writer.append("ss", content.toolTip.c_str(), "").close().result();
    }
    static void appendImages(Writer &writer, const std::vector<Image> &images) {
        writer.open('a', "(iiay)");
        for (const auto &image : images)
            writer.open('r', "iiay").append("ii", image.size, image.size).bytes(image.pixels).close();
        writer.close();
    }

    /// A dictionary of what the entry shows; number 0 is the menu itself.
    static void appendEntry(Writer &writer, const TrayItem &item, std::int32_t id) {
        if (id == 0) {
            writer.append("a{sv}", 1, "children-display", "s", "submenu");
            return;
        }
        const auto &button = item.menu_[static_cast<std::size_t>(id - 1)];
        std::string title;
        // An underscore marks the access key.
        for (const char c : button.title)
            title.append(c == '_' ? 2 : 1, c);
        writer.append("a{sv}", 2, "label", "s", title.c_str(), "enabled", "b",
                      static_cast<int>(button.isEnabled));
    }
    static bool has(const TrayItem &item, std::int32_t id) {
        return id >= 0 && static_cast<std::size_t>(id) <= item.menu_.size();
    }
    static int layout(sd_bus_message *call, void *data, sd_bus_error *) {
        auto &item = self(data);
        std::int32_t parent = 0, depth = 0;
        if (const int result = sd_bus_message_read(call, "ii", &parent, &depth); result < 0)
            return result;
        // The numbers of entries stand for what was last laid out.
        if (parent == 0)
            item.menu_ = item.handlers_.menu();
        if (!has(item, parent))
            return -ENOENT;
        return answer(call, [&](Writer &writer) {
            writer.append("u", item.revision_).open('r', "ia{sv}av").append("i", parent);
            appendEntry(writer, item, parent);
            writer.open('a', "v");
            const auto count = parent == 0 && depth != 0 ? static_cast<std::int32_t>(item.menu_.size()) : 0;
            for (std::int32_t id = 1; id <= count; ++id) {
                writer.open('v', "(ia{sv}av)").open('r', "ia{sv}av").append("i", id);
                appendEntry(writer, item, id);
                writer.append("av", 0).close().close();
            }
            writer.close().close();
        });
    }
    static int entries(sd_bus_message *call, void *data, sd_bus_error *) {
        auto &item = self(data);
        const void *wanted = nullptr;
        std::size_t size = 0;
        if (const int result = sd_bus_message_read_array(call, 'i', &wanted, &size); result < 0)
            return result;
        const auto *first = static_cast<const std::int32_t *>(wanted);
        std::vector<std::int32_t> ids(first, first + size / sizeof *first);
        // None named means all.
        for (std::int32_t id = 0; size == 0 && has(item, id); ++id)
            ids.push_back(id);
        return answer(call, [&](Writer &writer) {
            writer.open('a', "(ia{sv})");
            for (const auto id : ids)
                if (has(item, id)) {
                    writer.open('r', "ia{sv}").append("i", id);
                    appendEntry(writer, item, id);
                    writer.close();
                }
            writer.close();
        });
    }
    static int chosen(sd_bus_message *call, void *data, sd_bus_error *) {
        auto &item = self(data);
        std::int32_t id = 0;
        const char *event = nullptr;
        if (const int result = sd_bus_message_read(call, "is", &id, &event); result < 0)
            return result;
        if (std::string_view(event) == "clicked" && id > 0 && has(item, id))
            // Later: it may end the application, and the host waits for an answer.
            item.loop_.post(item.menu_[static_cast<std::size_t>(id - 1)].action);
        return sd_bus_reply_method_return(call, "");
    }
    static int aboutToShow(sd_bus_message *call, void *data, sd_bus_error *) {
        auto &item = self(data);
        const auto now = item.handlers_.menu();
        bool isSame = now.size() == item.menu_.size();
        for (std::size_t i = 0; isSame && i < now.size(); ++i)
            isSame = now[i].title == item.menu_[i].title && now[i].isEnabled == item.menu_[i].isEnabled;
        return sd_bus_reply_method_return(call, "b", static_cast<int>(!isSame));
    }

    static int ownerChanged(sd_bus_message *signal, void *data, sd_bus_error *) {
        const char *name = nullptr, *before = nullptr, *now = nullptr;
        if (sd_bus_message_read(signal, "sss", &name, &before, &now) >= 0 && *now)
            self(data).offer();
        else
            self(data).setHosted(false);
        return 0;
    }
    static int hostChanged(sd_bus_message *, void *data, sd_bus_error *) {
        self(data).offer();
        return 0;
    }
    static int answered(sd_bus_message *answer, void *data, sd_bus_error *) {
        int isHosted = 0;
        if (sd_bus_message_is_method_error(answer, nullptr) ||
            sd_bus_message_read(answer, "v", "b", &isHosted) < 0)
            isHosted = 0;
        self(data).setHosted(isHosted != 0);
        return 0;
    }

    static constexpr std::array applicationTable = {
        sd_bus_vtable(SD_BUS_VTABLE_START(0)),
        sd_bus_vtable(SD_BUS_METHOD("Activate", "a{sv}", "", launched, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_VTABLE_END)};
    static constexpr std::array itemTable = {
        sd_bus_vtable(SD_BUS_VTABLE_START(0)),
        sd_bus_vtable(SD_BUS_METHOD("Activate", "ii", "", pressed, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_METHOD("SecondaryActivate", "ii", "", pressed, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_METHOD("ContextMenu", "ii", "", pressed, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_METHOD("Scroll", "is", "", nothing, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_PROPERTY("Category", "s", property, 0, SD_BUS_VTABLE_PROPERTY_CONST)),
        sd_bus_vtable(SD_BUS_PROPERTY("Id", "s", property, 0, SD_BUS_VTABLE_PROPERTY_CONST)),
        sd_bus_vtable(SD_BUS_PROPERTY("Title", "s", property, 0, 0)),
        sd_bus_vtable(SD_BUS_PROPERTY("Status", "s", property, 0, 0)),
        sd_bus_vtable(SD_BUS_PROPERTY("IconName", "s", property, 0, 0)),
        sd_bus_vtable(SD_BUS_PROPERTY("IconPixmap", "a(iiay)", property, 0, 0)),
        sd_bus_vtable(SD_BUS_PROPERTY("ToolTip", "(sa(iiay)ss)", property, 0, 0)),
        sd_bus_vtable(SD_BUS_PROPERTY("ItemIsMenu", "b", property, 0, SD_BUS_VTABLE_PROPERTY_CONST)),
        sd_bus_vtable(SD_BUS_PROPERTY("Menu", "o", property, 0, SD_BUS_VTABLE_PROPERTY_CONST)),
        sd_bus_vtable(SD_BUS_SIGNAL("NewTitle", "", 0)),
        sd_bus_vtable(SD_BUS_SIGNAL("NewIcon", "", 0)),
        sd_bus_vtable(SD_BUS_SIGNAL("NewToolTip", "", 0)),
        sd_bus_vtable(SD_BUS_VTABLE_END)};
    static constexpr std::array menuTable = {
        sd_bus_vtable(SD_BUS_VTABLE_START(0)),
        sd_bus_vtable(SD_BUS_METHOD("GetLayout", "iias", "u(ia{sv}av)", layout, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(
            SD_BUS_METHOD("GetGroupProperties", "aias", "a(ia{sv})", entries, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_METHOD("Event", "isvu", "", chosen, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_METHOD("AboutToShow", "i", "b", aboutToShow, SD_BUS_VTABLE_UNPRIVILEGED)),
        sd_bus_vtable(SD_BUS_PROPERTY("Version", "u", property, 0, SD_BUS_VTABLE_PROPERTY_CONST)),
        sd_bus_vtable(SD_BUS_PROPERTY("TextDirection", "s", property, 0, SD_BUS_VTABLE_PROPERTY_CONST)),
        sd_bus_vtable(SD_BUS_PROPERTY("Status", "s", property, 0, 0)),
        sd_bus_vtable(SD_BUS_SIGNAL("LayoutUpdated", "ui", 0)),
        sd_bus_vtable(SD_BUS_VTABLE_END)};
};

TrayItem::TrayItem(EventLoop &loop, Handlers handlers) : loop_(loop), handlers_(std::move(handlers)) {}

TrayItem::~TrayItem() {
    loop_.cancel(untold_);
}

bool TrayItem::becomeOnly() {
    sd_bus *opened = nullptr;
    if (sd_bus_open_user(&opened) < 0)
        return true;
    bus_.reset(opened);
    sd_bus_set_exit_on_disconnect(opened, 0);
    const std::pair<const char *, std::pair<const char *, const sd_bus_vtable *>> objects[] = {
        {ownPath, {application, Protocol::applicationTable.data()}},
        {itemPath, {itemInterface, Protocol::itemTable.data()}},
        {menuPath, {menuInterface, Protocol::menuTable.data()}}};
    for (const auto &[path, object] : objects)
        if (sd_bus_add_object_vtable(opened, nullptr, path, object.first, object.second, this) < 0) {
            bus_.reset();
            return true;
        }
    const int result = sd_bus_request_name(opened, ownName, 0);
    if (result >= 0)
        return true;
    if (result == -EEXIST) {
        sd_bus_message *made = nullptr;
        const int isMade =
            sd_bus_message_new_method_call(opened, &made, ownName, ownPath, application, "Activate");
        const BusMessage call(made);
        if (isMade >= 0 && sd_bus_message_append(made, "a{sv}", 0) >= 0)
            sd_bus_call(opened, made, answerLimit, nullptr, nullptr);
    }
    bus_.reset();
    return result != -EEXIST;
}

void TrayItem::join(Content content) {
    content_ = std::move(content);
    constexpr const char *change = "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop."
                                   "DBus',member='NameOwnerChanged',arg0='org.kde.StatusNotifierWatcher'";
    if (bus_ && sd_bus_attach_event(bus_.get(), loop_.event(), SD_EVENT_PRIORITY_NORMAL) >= 0 &&
        sd_bus_add_match_async(bus_.get(), nullptr, change, Protocol::ownerChanged, nullptr, this) >= 0) {
        for (const char *member : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"})
            sd_bus_match_signal_async(bus_.get(), nullptr, watcher, watcherPath, watcher, member,
                                      Protocol::hostChanged, nullptr, this);
        offer();
    } else {
        bus_.reset();
        untold_ = loop_.postAfter(std::chrono::seconds(0), [this] { setHosted(false); });
    }
}

void TrayItem::offer() {
    // Again does no harm; a watcher that is not there answers with an error at once.
    const int registered =
        sd_bus_call_method_async(bus_.get(), nullptr, watcher, watcherPath, watcher,
                                 "RegisterStatusNotifierItem", nullptr, nullptr, "s", ownName);
    const int asked = sd_bus_call_method_async(bus_.get(), nullptr, watcher, watcherPath,
                                               "org.freedesktop.DBus.Properties", "Get", Protocol::answered,
                                               this, "ss", watcher, "IsStatusNotifierHostRegistered");
    if (registered < 0 || asked < 0)
        setHosted(false);
}

void TrayItem::setHosted(bool isHosted) {
    if (isHosted_ == isHosted)
        return;
    isHosted_ = isHosted;
    handlers_.hosted(isHosted);
}

void TrayItem::show(Content content) {
    const bool isOtherIcon = content.iconName != content_.iconName || content.images != content_.images;
    const bool isOtherTip = content.toolTip != content_.toolTip;
    content_ = std::move(content);
    if (!bus_)
        return;
    if (isOtherIcon)
        tell("NewIcon");
    if (!isOtherTip)
        return;
    tell("NewTitle");
    tell("NewToolTip");
}

void TrayItem::tell(const char *signal) {
    sd_bus_emit_signal(bus_.get(), itemPath, itemInterface, signal, "");
}

} // namespace tarn
