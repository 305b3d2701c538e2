// Watching folders on Linux: `FileWatcherInotify`, on inotify.
//
// inotify watches one folder per watch descriptor and is not recursive, so a
// recursive watch puts every folder below the top under a descriptor of its
// own, and adds folders that appear later as their creation is seen. Each
// descriptor remembers its watch and its path below the top folder, so that
// names reach the listener relative to the folder the watch was given.
#include <cerrno>
#include <filesystem>
#include <map>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "platform/file_watcher.h"

namespace vrk::platform::FW {

namespace {

// The events a watch asks for.
constexpr uint32_t kWatchMask = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM | IN_MODIFY |
                                IN_CLOSE_WRITE | IN_DELETE_SELF | IN_ONLYDIR;

// Bytes read from the inotify descriptor at once.
constexpr std::size_t kReadBuffer = 32768;

}  // namespace

// One watch given to addWatch.
struct WatchStruct {
    WatchID watchId = 0;                    // the id addWatch returned
    std::string directoryName;              // the top folder as given
    FileWatchListener* listener = nullptr;  // who hears of changes
    bool recursive = false;                 // folders below are watched too
    std::vector<int> descriptors;           // inotify descriptors of this watch
};

class FileWatcherInotify : public FileWatcherImpl {
public:
    FileWatcherInotify() : fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}
    ~FileWatcherInotify() override {
        while (!watches.empty()) removeWatch(watches.begin()->first);
        if (fd >= 0) close(fd);
    }

    WatchID addWatch(const std::string& directory, FileWatchListener* listener,
                     bool recursive) override {
        std::error_code error;
        if (fd < 0 || !std::filesystem::is_directory(directory, error))
            throw FileNotFoundException(directory);
        auto watch = std::make_unique<WatchStruct>();
        watch->watchId = ++lastWatchId;
        watch->directoryName = directory;
        watch->listener = listener;
        watch->recursive = recursive;
        if (!add_folder(*watch, directory, "")) {
            throw FileNotFoundException(directory);
        }
        if (recursive) {
            std::filesystem::recursive_directory_iterator it(
                directory, std::filesystem::directory_options::skip_permission_denied, error);
            for (; !error && it != std::filesystem::recursive_directory_iterator();
                 it.increment(error)) {
                if (!it->is_directory(error)) continue;
                const std::string relative =
                    std::filesystem::relative(it->path(), directory, error).generic_string();
                add_folder(*watch, it->path().string(), relative);
            }
        }
        const WatchID id = watch->watchId;
        watches[id] = std::move(watch);
        return id;
    }

    void removeWatch(WatchID watchId) override {
        auto found = watches.find(watchId);
        if (found == watches.end()) return;
        for (int wd : found->second->descriptors) {
            inotify_rm_watch(fd, wd);
            folders.erase(wd);
        }
        watches.erase(found);
    }

    void removeWatch(const std::string& directory) override {
        for (const auto& [id, watch] : watches) {
            if (watch->directoryName == directory) {
                removeWatch(id);
                return;
            }
        }
    }

    void update() override {
        if (fd < 0) return;
        alignas(inotify_event) char buffer[kReadBuffer];
        for (;;) {
            const ssize_t got = read(fd, buffer, sizeof buffer);
            if (got <= 0) return;  // EAGAIN: nothing more now
            for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                handle_event(*event);
            }
        }
    }

private:
    // What a descriptor watches: the watch it belongs to and its folder
    // relative to the watch's top folder ("" for the top).
    struct Folder {
        WatchID watchId = 0;   // the watch
        std::string relative;  // path below the top folder
    };

    bool add_folder(WatchStruct& watch, const std::string& path, const std::string& relative) {
        const int wd = inotify_add_watch(fd, path.c_str(), kWatchMask);
        if (wd < 0) return false;
        watch.descriptors.push_back(wd);
        folders[wd] = Folder{watch.watchId, relative};
        return true;
    }

    void handle_event(const inotify_event& event) {
        auto folder = folders.find(event.wd);
        if (folder == folders.end()) return;
        auto found = watches.find(folder->second.watchId);
        if (found == watches.end()) return;
        WatchStruct& watch = *found->second;
        if (event.mask & (IN_IGNORED | IN_DELETE_SELF)) {
            if (event.mask & IN_IGNORED) folders.erase(folder);
            return;
        }
        if (event.len == 0) return;
        const std::string name = event.name;
        const std::string fileName = folder->second.relative.empty()
                                         ? name
                                         : folder->second.relative + "/" + name;
        if (watch.recursive && (event.mask & IN_ISDIR) && (event.mask & (IN_CREATE | IN_MOVED_TO)))
            add_folder(watch, watch.directoryName + "/" + fileName, fileName);
        if (event.mask & (IN_CREATE | IN_MOVED_TO)) handleAction(watch, fileName, Action::Add);
        if (event.mask & (IN_DELETE | IN_MOVED_FROM)) handleAction(watch, fileName, Action::Delete);
        if (event.mask & (IN_MODIFY | IN_CLOSE_WRITE))
            handleAction(watch, fileName, Action::Modified);
    }

    void handleAction(WatchStruct& watch, const std::string& fileName, Action action) {
        if (watch.listener)
            watch.listener->handleFileAction(watch.watchId, watch.directoryName, fileName, action);
    }

    int fd = -1;                                              // the inotify descriptor
    std::map<WatchID, std::unique_ptr<WatchStruct>> watches;  // watches by id
    std::map<int, Folder> folders;                            // watched folders by descriptor
    WatchID lastWatchId = 0;                                  // the last id handed out
};

std::unique_ptr<FileWatcherImpl> FileWatcherImpl::create() {
    return std::make_unique<FileWatcherInotify>();
}

FileWatcher::FileWatcher() : watcherImpl(FileWatcherImpl::create()) {}
FileWatcher::~FileWatcher() = default;

}  // namespace vrk::platform::FW
