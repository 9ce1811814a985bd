#include "checks/validation_report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

std::string field(const nlohmann::json& check, const char* key) {
    const auto found = check.find(key);
    return found != check.end() && found->is_string() ? found->get<std::string>() : "";
}

double seconds(const nlohmann::json& check) {
    const auto found = check.find("seconds");
    return found != check.end() && found->is_number() ? found->get<double>() : 0.0;
}

// Text in XML attributes and elements.
std::string xmlEscaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            // XML 1.0 has no place for other control characters.
            escaped += (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') ? ' ' : c;
        }
    }
    return escaped;
}

} // namespace

bool ValidationReport::passed() const {
    return std::none_of(checks.begin(), checks.end(), [](const nlohmann::json& check) {
        return field(check, "status") == "fail";
    });
}

nlohmann::json reportJson(const ValidationReport& report) {
    return {{"plugin", report.plugin},
            {"kind", report.kind.empty() ? nlohmann::json(nullptr) : nlohmann::json(report.kind)},
            {"name", report.name},
            {"passed", report.passed()},
            {"checks", report.checks}};
}

void printTable(const ValidationReport& report) {
    std::fprintf(stderr, "%s (%s%s%s)\n", report.plugin.c_str(), report.kind.c_str(),
                 report.name.empty() ? "" : ", ", report.name.c_str());
    for (const auto& check : report.checks)
        std::fprintf(stderr, "  %-15s %-4s %7.2f s  %s\n", field(check, "id").c_str(),
                     field(check, "status").c_str(), seconds(check),
                     field(check, "message").c_str());
    std::fprintf(stderr, "  %s\n", report.passed() ? "passed" : "FAILED");
}

void writeJunit(const std::string& path, const std::vector<ValidationReport>& reports) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"vst-adapter "
           "validate\">\n";
    for (const auto& report : reports) {
        const auto count = [&](const char* status) {
            return std::count_if(
                report.checks.begin(), report.checks.end(),
                [&](const nlohmann::json& c) { return field(c, "status") == status; });
        };
        double total = 0;
        for (const auto& check : report.checks)
            total += seconds(check);
        out << "  <testsuite name=\"" << xmlEscaped(report.plugin) << "\" tests=\""
            << report.checks.size() << "\" failures=\"" << count("fail") << "\" skipped=\""
            << count("skip") << "\" time=\"" << total << "\">\n";
        for (const auto& check : report.checks) {
            const std::string status = field(check, "status");
            const std::string message = xmlEscaped(field(check, "message"));
            out << "    <testcase classname=\""
                << xmlEscaped(report.name.empty() ? report.plugin : report.name) << "\" name=\""
                << xmlEscaped(field(check, "id")) << "\" time=\"" << seconds(check) << "\">";
            if (status == "fail")
                out << "<failure message=\"" << message << "\"/>";
            else if (status == "skip")
                out << "<skipped message=\"" << message << "\"/>";
            else if (status == "warn")
                out << "<system-out>warning: " << message << "</system-out>";
            out << "</testcase>\n";
        }
        out << "  </testsuite>\n";
    }
    out << "</testsuites>\n";
    out.flush();
    if (!out)
        throw std::runtime_error("could not write the JUnit report: '" + path + "'");
}
