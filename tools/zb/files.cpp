#include "files.h"

#include <glob.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "failure.h"
#include "suggest.h"
#include "terminal.h"
#include "zb.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

// The names in the directory of `path` that equal its own but for case.
std::vector<std::string> CaseVariants(const std::string& path) {
    fs::path wanted(path);
    fs::path directory = wanted.parent_path();
    std::string name = wanted.filename().string();
    std::vector<std::string> found;
    std::error_code error;
    fs::directory_iterator entries(directory.empty() ? fs::path(".") : directory, error);
    if (error) return found;
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        std::string entry = entries->path().filename().string();
        if (strcasecmp(entry.c_str(), name.c_str()) == 0) found.push_back((directory / entry).string());
        if (error) break;
    }
    return found;
}

std::vector<std::string> NamesIn(const fs::path& directory) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entries(directory.empty() ? fs::path(".") : directory, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error))
        names.push_back(entries->path().filename().string());
    return names;
}

// Of a table and its memo file.
char partNames[2][4096];

// What an interrupt leaves behind is told by the shell's status; the part file
// is taken away, so that nothing half-done stays.
void RemovePartAndEnd(int signal) {
    for (const char* name : partNames)
        if (name[0] != 0) unlink(name);
    _exit(128 + signal);
}

void SetHandlers() {
    bool any = partNames[0][0] != 0 || partNames[1][0] != 0;
    for (int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, any ? RemovePartAndEnd : SIG_DFL);
}

void KeepPartName(const std::string& name) {
    for (auto& place : partNames)
        if (place[0] == 0 && name.size() < sizeof place) {
            std::memcpy(place, name.c_str(), name.size() + 1);
            break;
        }
    SetHandlers();
}

void ForgetPartName(const std::string& name) {
    for (auto& place : partNames)
        if (name == place) place[0] = 0;
    SetHandlers();
}

}  // namespace

bool Exists(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error);
}

std::string FindFile(const std::string& path) {
    if (path.empty()) throw CodeFailure(ZB_ErrBadName, "''");
    if (Exists(path)) {
        if (fs::is_directory(path)) throw CodeFailure(ZB_ErrOpen, path, "it is a directory");
        return path;
    }
    std::vector<std::string> found = CaseVariants(path);
    if (found.size() == 1) return found[0];
    std::string line = path + ": " + DescribeCode(ZB_ErrOpen);
    if (found.empty()) {
        fs::path directory = fs::path(path).parent_path();
        std::string near = Nearest(fs::path(path).filename().string(), NamesIn(directory));
        throw Failure(Exit::notFound,
                      line + "; there is no such file" +
                          (near.empty() ? "" : ", did you mean " + (directory / near).string() + "?"));
    }
    line += "; several files differ from it in case only:";
    for (const std::string& name : found) line += " " + name;
    throw Failure(Exit::notFound, line);
}

bool HasExtension(const std::string& path, const std::string& extension) {
    return strcasecmp(fs::path(path).extension().string().c_str(), extension.c_str()) == 0;
}

namespace {

std::vector<std::string> FilesIn(const std::string& directory, const std::vector<std::string>& extensions) {
    std::vector<std::string> files;
    for (const std::string& name : NamesIn(directory))
        for (const std::string& extension : extensions)
            if (HasExtension(name, extension))
                files.push_back((fs::path(directory) / name).lexically_normal().string());
    std::sort(files.begin(), files.end());
    if (files.empty()) throw Failure(Exit::notFound, directory + ": no " + extensions[0] + " file is in it");
    return files;
}

std::vector<std::string> Matches(const std::string& pattern) {
    glob_t found = {};
    std::vector<std::string> files;
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    if (files.empty()) throw Failure(Exit::notFound, pattern + ": no file has such a name");
    return files;
}

}  // namespace

std::vector<std::string> ExpandNames(const std::vector<std::string>& names,
                                     const std::vector<std::string>& extensions) {
    std::vector<std::string> files;
    auto add = [&](const std::string& file) {
        if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(file);
    };
    for (const std::string& name : names) {
        std::error_code error;
        if (fs::is_directory(name, error)) {
            for (const std::string& file : FilesIn(name, extensions)) add(file);
        } else if (!Exists(name) && name.find_first_of("*?[") != std::string::npos) {
            for (const std::string& file : Matches(name)) add(file);
        } else {
            add(FindFile(name));
        }
    }
    return files;
}

std::string WithExtension(const std::string& path, const std::string& extension) {
    return fs::path(path).replace_extension(extension).string();
}

std::optional<std::string> FindSibling(const std::string& path, const std::string& extension) {
    std::string name = WithExtension(path, extension);
    if (Exists(name)) return name;
    std::vector<std::string> found = CaseVariants(name);
    if (found.size() == 1) return found[0];
    return std::nullopt;
}

void MayReplace(const std::string& path, bool force) {
    if (force || !Exists(path)) return;
    if (!fs::is_directory(path) && Confirm(path + " exists. Replace it?")) return;
    throw CodeFailure(ZB_ErrAccess, path, "the file exists and is left as it was (--force replaces it)");
}

void KeepAs(const std::string& path, const std::string& backup) {
    unlink(backup.c_str());
    std::error_code error;
    fs::create_hard_link(path, backup, error);
    if (error) fs::copy_file(path, backup, error);
    if (error) throw CodeFailure(ZB_ErrAccess, backup, error.message() + "; nothing was changed");
}

PartFile::PartFile(const std::string& finalName) : target(finalName) {
    int number = 0;
    do {
        part = target + "." + std::to_string(getpid()) + "-" + std::to_string(number++) + ".part";
    } while (Exists(part));
    KeepPartName(part);
}

PartFile::~PartFile() {
    if (part.empty()) return;
    unlink(part.c_str());
    ForgetPartName(part);
}

void PartFile::Commit() {
    std::error_code error;
    fs::rename(part, target, error);
    if (error) throw CodeFailure(ZB_ErrAccess, target, error.message());
    ForgetPartName(part);
    part.clear();
}

}  // namespace tool
