#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Zel::Tools::Nimhost {

// Builds a document in the Prometheus text exposition format (version
// 0.0.4), as node_exporter's textfile collector reads it: each metric family
// once, HELP and TYPE first, then its samples.
class PrometheusText {
public:
    using Labels = std::vector<std::pair<std::string, std::string>>;

    // Starts a family; type is "gauge" or "counter". A family without
    // samples is left out of the document.
    void Family(const std::string& name, const std::string& type, const std::string& help);

    // A sample of the family started last.
    void Sample(const Labels& labels, double value);

    std::string Text() const;

private:
    struct Entry {
        std::string header;
        std::vector<std::string> samples;
        std::string name;
    };
    std::vector<Entry> families;
};

// A label value with backslash, double quote and line feed escaped.
std::string EscapeLabelValue(const std::string& value);

} // namespace Zel::Tools::Nimhost
