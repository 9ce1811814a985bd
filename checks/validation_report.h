#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// What `validate` found for one plug-in: who it is and each check's result object (id, status,
// message, seconds and the check's figures). One thread.
struct ValidationReport {
    std::string plugin;
    std::string kind; // "vst2", "vst3", or empty when it could not be opened
    std::string name;
    std::vector<nlohmann::json> checks;

    // No check failed.
    bool passed() const;
};

nlohmann::json reportJson(const ValidationReport& report);
// A table for people on standard error: one line per check with its status, time and message.
void printTable(const ValidationReport& report);
// The same facts as JUnit XML, one test suite per plug-in and one test case per check. Throws
// std::runtime_error naming the file when it cannot be written.
void writeJunit(const std::string& path, const std::vector<ValidationReport>& reports);
