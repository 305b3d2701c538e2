// Watching folders on Windows: `FileWatcherWin32`, on ReadDirectoryChangesW.
//
// Each watch opens its folder for overlapped reading and keeps one
// ReadDirectoryChangesW request under way, with a completion routine. The
// routine runs only while the watcher's thread waits alertably, which is what
// `update` does (one wait without timeout), so every listener call happens on
// the thread that calls `update`. The routine walks the records of the
// buffer, reports each, and starts the next request unless the watch is
// being removed.
#include <map>
#include <windows.h>

#include "platform/file_watcher.h"
#include "platform/text_windows.h"

namespace vrk::platform::FW {

namespace {

// Bytes of the change buffer of one watch.
constexpr DWORD kBufferSize = 32768;
// What a watch asks to hear of: names, sizes, writes and creations.
constexpr DWORD kNotifyFilter = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE |
                                FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;

}  // namespace

class FileWatcherWin32;

// One watch; the overlapped record comes first so that the completion routine
// finds the watch from it.
struct WatchStruct {
    OVERLAPPED overlapped{};                        // the request under way
    HANDLE directoryHandle = INVALID_HANDLE_VALUE;  // the open folder
    alignas(DWORD) BYTE buffer[kBufferSize];        // change records
    DWORD notifyFilter = kNotifyFilter;             // what the request asks for
    bool stopNow = false;                           // the watch is being removed
    FileWatcherWin32* watcher = nullptr;            // the owning watcher
    FileWatchListener* listener = nullptr;          // who hears of changes
    std::string directoryName;                      // the folder as given
    WatchID watchId = 0;                            // the id addWatch returned
    bool recursive = false;                         // folders below are watched too
};

namespace {

bool refresh(WatchStruct& watch, bool clear);

}  // namespace

class FileWatcherWin32 : public FileWatcherImpl {
public:
    ~FileWatcherWin32() override {
        while (!watches.empty()) removeWatch(watches.begin()->first);
    }

    WatchID addWatch(const std::string& directory, FileWatchListener* listener,
                     bool recursive) override {
        auto watch = std::make_unique<WatchStruct>();
        watch->directoryHandle = CreateFileW(
            to_wide(directory).c_str(), FILE_LIST_DIRECTORY,
            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
        if (watch->directoryHandle == INVALID_HANDLE_VALUE) throw FileNotFoundException(directory);
        watch->overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        watch->watcher = this;
        watch->listener = listener;
        watch->directoryName = directory;
        watch->recursive = recursive;
        if (!watch->overlapped.hEvent || !refresh(*watch, false)) {
            if (watch->overlapped.hEvent) CloseHandle(watch->overlapped.hEvent);
            CloseHandle(watch->directoryHandle);
            throw FileNotFoundException(directory);
        }
        watch->watchId = ++lastWatchId;
        const WatchID id = watch->watchId;
        watches[id] = std::move(watch);
        return id;
    }

    void removeWatch(WatchID watchId) override {
        auto found = watches.find(watchId);
        if (found == watches.end()) return;
        WatchStruct& watch = *found->second;
        watch.stopNow = true;
        CancelIo(watch.directoryHandle);
        refresh(watch, true);
        if (!HasOverlappedIoCompleted(&watch.overlapped)) SleepEx(5, TRUE);
        CloseHandle(watch.overlapped.hEvent);
        CloseHandle(watch.directoryHandle);
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
        MsgWaitForMultipleObjectsEx(0, nullptr, 0, QS_ALLINPUT, MWMO_ALERTABLE);
    }

    // Maps the system's action and tells the listener.
    void handleAction(WatchStruct& watch, const std::string& fileName, DWORD action) {
        Action mapped = Action::Modified;
        switch (action) {
            case FILE_ACTION_ADDED:
            case FILE_ACTION_RENAMED_NEW_NAME: mapped = Action::Add; break;
            case FILE_ACTION_REMOVED:
            case FILE_ACTION_RENAMED_OLD_NAME: mapped = Action::Delete; break;
            case FILE_ACTION_MODIFIED: mapped = Action::Modified; break;
            default: return;
        }
        if (watch.listener)
            watch.listener->handleFileAction(watch.watchId, watch.directoryName, fileName, mapped);
    }

private:
    std::map<WatchID, std::unique_ptr<WatchStruct>> watches;  // watches by id
    WatchID lastWatchId = 0;                                  // the last id handed out
};

namespace {

void CALLBACK watch_callback(DWORD errorCode, DWORD bytes, LPOVERLAPPED overlapped) {
    if (bytes == 0) return;
    auto* watch = reinterpret_cast<WatchStruct*>(overlapped);
    if (errorCode == ERROR_SUCCESS) {
        DWORD offset = 0;
        for (;;) {
            const auto* record = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(watch->buffer +
                                                                                  offset);
            const std::wstring name(record->FileName, record->FileNameLength / sizeof(WCHAR));
            std::string fileName = from_wide(name);
            for (char& c : fileName)
                if (c == '\\') c = '/';
            watch->watcher->handleAction(*watch, fileName, record->Action);
            if (record->NextEntryOffset == 0) break;
            offset += record->NextEntryOffset;
            if (offset >= kBufferSize) break;
        }
    }
    if (!watch->stopNow) refresh(*watch, false);
}

bool refresh(WatchStruct& watch, bool clear) {
    return ReadDirectoryChangesW(watch.directoryHandle, watch.buffer, sizeof watch.buffer,
                                 watch.recursive ? TRUE : FALSE, watch.notifyFilter, nullptr,
                                 &watch.overlapped, clear ? nullptr : &watch_callback) != 0;
}

}  // namespace

std::unique_ptr<FileWatcherImpl> FileWatcherImpl::create() {
    return std::make_unique<FileWatcherWin32>();
}

FileWatcher::FileWatcher() : watcherImpl(FileWatcherImpl::create()) {}
FileWatcher::~FileWatcher() = default;

}  // namespace vrk::platform::FW
