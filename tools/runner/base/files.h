// The files the runner writes and the folder the browser preview keeps to.
//
// Every file the runner writes (a scenario's --update, a JUnit report, a file saved from the
// page) goes through WriteFile: a temporary file beside it, written and flushed to the disk,
// then renamed over it. A crash or a full disk at any point leaves either the old file or the
// new one, never a mix or nothing.
//
// The preview serves one folder. Every file it reads on a request's behalf is opened by
// ReadInside, which refuses, before reading a byte, anything that is not a regular file inside
// that folder once links are followed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace preview {

struct WriteOptions {
    bool keepBackup = false;  // the former content stays as path + "~" (a second link to it)
};

// Writes text to path; false with the reason (the system's, or what could not be done).
bool WriteFile(const std::string& path, const std::string& text, std::string& reason,
               WriteOptions options = {});

// A file read inside the folder larger than this is refused: configurations and scenarios are
// kilobytes, and the preview must not be made to hold a disk image in memory.
constexpr size_t kMaxInsideFileBytes = 16u * 1024 * 1024;

// Whether path (absolute, or relative to the current folder) is a regular file inside dir once
// every link is followed; dir must be absolute and resolved. On success real is the resolved
// path. A missing file is allowed when missingOk (a file about to be made): then its folder
// must be inside.
bool ResolveInside(const std::string& dir, const std::string& path, std::string& real,
                   std::string& reason, bool missingOk = false);

// Reads path after ResolveInside agreed, through a descriptor checked to be the same regular
// file (no link swapped in between, no FIFO that would block, no device).
bool ReadInside(const std::string& dir, const std::string& path, std::string& text,
                std::string& reason);

// dir/name for a name as the page sends it: relative, no "..", and inside once links are
// followed (the file itself may be missing).
bool PathInside(const std::string& dir, const std::string& name, std::string& path,
                std::string& reason);

// The files directly in the folder name (as the page sends it: relative, no "..") whose names
// end in suffix, as paths in name order; false with the reason when name is no folder inside
// dir once links are followed. Nothing is read: each file still goes through ReadInside.
bool ListInside(const std::string& dir, const std::string& name, const std::string& suffix,
                std::vector<std::string>& paths, std::string& reason);

// The folders under dir (dir itself as ".") that hold a regular file whose name ends in suffix,
// in name order. Links are not followed and hidden folders not entered; the walk goes depth
// folders down and looks at most at entries names, so a large tree cannot hold up a request.
std::vector<std::string> FoldersHolding(const std::string& dir, const std::string& suffix,
                                        int depth, size_t entries);

}  // namespace preview
