// Files that were received, under names that are not trusted.
#ifndef KOSC_TOOL_FILE_SAVER_H
#define KOSC_TOOL_FILE_SAVER_H

#include <string>

class file_saver {
public:
    // Throws when `folder` is no folder that can be written to.
    file_saver(std::string folder, bool overwrite);

    // Saves under `name`, which is safe, or, where there is such a file and it may not be overwritten, under name-2 and
    // so on; returns the path. A file is there whole or not at all. Throws when it cannot be written.
    std::string save(const std::string& name, const std::string& contents) const;

private:
    std::string folder_;
    bool overwrite_;
};

#endif
