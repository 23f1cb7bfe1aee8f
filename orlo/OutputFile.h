#pragma once

#include <optional>
#include <string>

#include "images/TemporaryFile.h"

/// A file that replaces its target only when it is whole.
///
/// It is written under a temporary name in the target's folder. Destroying it without Commit, or a signal that ends the process, removes the
/// temporary file and leaves the target as it was.
class OutputFile {
public:
    /// A target that is a symbolic link stands for the file that it leads to. Throws Complaint.
    explicit OutputFile(const std::string& path);

    /// Open for reading and writing.
    int Descriptor() const { return file_->Descriptor(); }
    /// Writes the text, and nothing else, and commits. Throws Complaint.
    void WriteWhole(const std::string& text);
    /// Where it is written until then.
    const std::string& TemporaryPath() const { return file_->Path(); }
    /// Puts the file in the target's place, with its permissions. Throws Complaint.
    void Commit();
    [[noreturn]] void ComplainOfWriting() const;

private:
    std::string path_;  // as the user named it
    std::string target_;
    std::optional<TemporaryFile> file_;
};
