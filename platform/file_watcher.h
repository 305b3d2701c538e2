// Watching a folder for changed files.
//
// The host reloads its script when a file beside it is saved. What the system
// offers for that differs a lot between platforms, so this layer gives one
// small model, in the namespace `FW`: a `FileWatcher` facade owns one
// platform implementation (`FileWatcherImpl`); `addWatch` puts a folder
// (and, with `recursive`, every folder below it) under watch for a
// `FileWatchListener`; `update` hands every change that happened since the
// last call to the listeners, on the calling thread, and never blocks. A
// change is reported with the watch's id, the folder as it was given to
// `addWatch`, the file's name relative to that folder ("sub/a.vrs") and one of
// three actions: a file appeared (`Add`), went (`Delete`) or was written
// (`Modified`). Renames count as a `Delete` of the old name and an `Add` of
// the new one. One save can arrive as more than one `Modified`.
//
// A folder that cannot be watched makes `addWatch` throw
// `FileNotFoundException`, whose text is "File not found (<folder>)".
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace vrk::platform::FW {

// Identifies one watch of a watcher; ids start at 1.
using WatchID = uint32_t;

// What happened to a file.
enum class Action : uint32_t {
    Add = 1,       // created, or renamed to this name
    Delete = 2,    // removed, or renamed away from this name
    Modified = 4,  // written
};

// Base of the layer's errors.
class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A folder that does not exist or cannot be watched.
class FileNotFoundException : public Exception {
public:
    explicit FileNotFoundException(const std::string& directory)
        : Exception("File not found (" + directory + ")") {}
};

// Receives the changes of the watches it was given to.
class FileWatchListener {
public:
    virtual ~FileWatchListener() = default;
    // One change: the watch, its folder as given, the file name relative to
    // it, and what happened.
    virtual void handleFileAction(WatchID watchId, const std::string& directory,
                                  const std::string& fileName, Action action) = 0;
};

// One platform's way of watching; `FileWatcher` owns one.
class FileWatcherImpl {
public:
    virtual ~FileWatcherImpl() = default;
    // Watches `directory` for `listener`; throws FileNotFoundException.
    virtual WatchID addWatch(const std::string& directory, FileWatchListener* listener,
                             bool recursive) = 0;
    // Ends a watch; an unknown id or folder is ignored.
    virtual void removeWatch(WatchID watchId) = 0;
    virtual void removeWatch(const std::string& directory) = 0;
    // Hands the changes seen so far to the listeners; does not block.
    virtual void update() = 0;

    // Creates this platform's implementation.
    static std::unique_ptr<FileWatcherImpl> create();
};

// The watcher the host uses: forwards to its platform implementation.
class FileWatcher {
public:
    FileWatcher();
    virtual ~FileWatcher();
    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;

    WatchID addWatch(const std::string& directory, FileWatchListener* listener,
                     bool recursive = false) {
        return watcherImpl->addWatch(directory, listener, recursive);
    }
    void removeWatch(WatchID watchId) { watcherImpl->removeWatch(watchId); }
    void removeWatch(const std::string& directory) { watcherImpl->removeWatch(directory); }
    void update() { watcherImpl->update(); }

private:
    std::unique_ptr<FileWatcherImpl> watcherImpl;  // the platform's implementation
};

}  // namespace vrk::platform::FW
