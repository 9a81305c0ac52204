// How the tool's parts report what a user can put right.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

/// A file, what is wrong with it, and where possible what would be right.
class FileError : public std::runtime_error {
public:
    FileError(const std::filesystem::path& file, const std::string& problem)
        : std::runtime_error((file.empty() ? "''" : file.string()) + ": " + problem), text(problem)
    {
    }

    /// What is wrong, without the file.
    const std::string& problem() const { return text; }

private:
    std::string text;
};
