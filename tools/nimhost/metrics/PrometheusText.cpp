#include "metrics/PrometheusText.hpp"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

namespace Zel::Tools::Nimhost {

namespace {

std::string EscapeHelp(const std::string& text)
{
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\\\";
        } else if (c == '\n') {
            escaped += "\\n";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

// Shortest text that reads back as the same number; integers without a
// fraction, as the format's examples write them.
std::string FormatValue(double value)
{
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+Inf" : "-Inf";
    }
    return fmt::format("{}", value);
}

} // namespace

std::string EscapeLabelValue(const std::string& value)
{
    std::string escaped;
    for (const char c : value) {
        if (c == '\\') {
            escaped += "\\\\";
        } else if (c == '"') {
            escaped += "\\\"";
        } else if (c == '\n') {
            escaped += "\\n";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

void PrometheusText::Family(const std::string& name, const std::string& type, const std::string& help)
{
    families.push_back({fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, EscapeHelp(help), name, type), {}, name});
}

void PrometheusText::Sample(const Labels& labels, double value)
{
    if (families.empty()) {
        throw std::logic_error("PrometheusText: a sample before its family");
    }
    Entry& family = families.back();
    std::string line = family.name;
    if (!labels.empty()) {
        line += '{';
        for (std::size_t i = 0; i < labels.size(); ++i) {
            line += fmt::format("{}{}=\"{}\"", i == 0 ? "" : ",", labels[i].first, EscapeLabelValue(labels[i].second));
        }
        line += '}';
    }
    family.samples.push_back(fmt::format("{} {}\n", line, FormatValue(value)));
}

std::string PrometheusText::Text() const
{
    std::string text;
    for (const auto& family : families) {
        if (family.samples.empty()) {
            continue;
        }
        text += family.header;
        for (const auto& sample : family.samples) {
            text += sample;
        }
    }
    return text;
}

} // namespace Zel::Tools::Nimhost
