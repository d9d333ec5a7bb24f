// What the public headers say that a call logs.
#ifndef KOSC_TESTS_FAULTS_DOCUMENTED_H
#define KOSC_TESTS_FAULTS_DOCUMENTED_H

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

using text_set = std::set<std::string>;

// Whether a text is what a pattern says, in which * stands for any characters.
inline bool fits(const char* text, const char* pattern)
{
    if (*pattern == '*') {
        return fits(text, pattern + 1) || (*text != '\0' && fits(text + 1, pattern));
    }
    return *text == *pattern && (*text == '\0' || fits(text + 1, pattern + 1));
}

// The headers, each comment in one line.
inline std::string read_headers(const char* directory)
{
    std::stringstream text;
    for (const auto& file : std::filesystem::directory_iterator{directory}) {
        if (file.path().extension() == ".h") {
            text << std::ifstream{file.path()}.rdbuf();
        }
    }
    return std::regex_replace(text.str(), std::regex{"\\s*\n \\*(?!/) *"}, " ");
}

// The messages, as patterns, in the comment on `call`, from its result on, and on the calls that it names there.
inline void find_texts(const std::string& headers, const std::string& call, text_set* calls, text_set* texts)
{
    std::smatch declared;
    if (!calls->insert(call).second || !std::regex_search(headers, declared, std::regex{"[ *]" + call + "\\([^)]"})) {
        return;
    }
    const size_t start = headers.rfind("/**", static_cast<size_t>(declared.position()));
    std::string comment = headers.substr(start, headers.find("*/", start) - start);
    comment.erase(0, comment.find("@return") != std::string::npos ? comment.find("@return") : 0);
    const std::regex words{"(ERROR|WARN)|\"([^\"]+)\"|(\\w+)\\(\\)"};
    std::string level;
    for (std::sregex_iterator word{comment.begin(), comment.end(), words}, end; word != end; ++word) {
        level = (*word)[1].matched ? word->str() + " " : level;
        if ((*word)[2].matched) {
            texts->insert(level + std::regex_replace((*word)[2].str(), std::regex{"%[dsu]"}, "*"));
        } else if ((*word)[3].matched) {
            find_texts(headers, (*word)[3], calls, texts);
        }
    }
}

#endif
