#include "gateway/ResultPage.h"

#include <fmt/format.h>

#include <algorithm>

#include "gateway/Html.h"
#include "result/LabResult.h"

namespace ZELPC {

namespace {

void Fact(std::string& html, const char* name, const std::string& value) {
    if (!value.empty()) {
        html += fmt::format("<dt>{}</dt><dd>{}</dd>", name, Escape(value));
    }
}

std::string Facts(const StoredResult& stored, const LabResult& result) {
    std::string html = "<dl>";
    Fact(html, "Analyzer", stored.serial);
    Fact(html, "Received", TimeText(stored.received));
    Fact(html, result.control ? "Control" : "Patient", result.patient);
    Fact(html, "Born", DigitsText(result.birth));
    Fact(html, "Sex", result.sex);
    Fact(html, "Age", result.age);
    Fact(html, "Client", result.client);
    Fact(html, "Species", result.speciesName.empty() ? result.species : result.speciesName);
    Fact(html, "Specimen", result.specimen);
    Fact(html, "Panel", result.panel);
    Fact(html, "Lot", result.lot);
    Fact(html, "Material",
         result.materialName + " " + result.materialLevel == " " ? ""
                                                                 : result.materialName + " " + result.materialLevel);
    Fact(html, "Measured", DigitsText(result.Measured()));
    Fact(html, "Operator", result.values.empty() ? "" : result.values.front().operatorID);
    Fact(html, "Came again", stored.repeats == 0 ? "" : fmt::format("{} times", stored.repeats));
    return html + "</dl>\n";
}

std::string Values(const LabResult& result) {
    CHtmlTable table("Values", {"Analyte", "Value", "Unit", "Range", "Flags"});
    for (const LabValue& value : result.values) {
        std::string flags;
        for (const auto& [name, flag] :
             {std::pair("QC", value.qcFlag), std::pair("error", value.errorCode), std::pair("rule", value.rule)}) {
            if (!flag.empty() && flag != "0") {
                flags += fmt::format("{}{} {}", flags.empty() ? "" : ", ", name, Escape(flag));
            }
        }
        table.Add({Escape(value.analyte), "<strong>" + Escape(value.value) + "</strong>", Escape(value.unit),
                   Escape(value.range), flags});
    }
    return table.Html("It holds no values.");
}

}  // namespace

std::string RawText(const std::string& text) {
    // A block for each segment: where one goes on in a second line it is seen that it does.
    std::string html;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
        html += "<span>" + Escape(std::string_view(text).substr(begin, end - begin)) + "</span>\n";
        begin = end + 1;
    }
    return html;
}

std::string ResultHtml(const StoredResult& stored) {
    const auto result = ReadLabResult(stored.text);
    const std::string readable = result.has_value() ? Facts(stored, *result) + Values(*result)
                                                    : "<p>It cannot be read; the text beside is what came.</p>";
    return "<div class=\"pair\"><section aria-label=\"In words\"><h2>In words</h2>" + readable +
           "</section><section aria-label=\"As it came\"><h2>As it came</h2><pre tabindex=\"0\">" +
           RawText(stored.text) + "</pre></section></div>\n";
}

}  // namespace ZELPC
