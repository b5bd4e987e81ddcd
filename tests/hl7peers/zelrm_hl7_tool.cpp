/// The HL7 library at the command line, for the tests that let other parsers read what it writes and the other way
/// round:
///
///     zelrm_hl7_tool encode MESSAGE    lines POSITION=VALUE in, message out
///     zelrm_hl7_tool decode MESSAGE    message in, lines POSITION=VALUE out, without empty values
///
/// A position is written as HL7 people speak of it: PID-5.1.1, and OBX[2]-5 in the second OBX of the message. MESSAGE
/// is a structure such as OUL_R22. Status 1: the input does not fit the message; status 2: wrong usage.

#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "hl7/message/Messages.h"

namespace {

namespace base = HL7v251::Base;
using namespace HL7v251::Message;

using Values = std::map<std::string, std::string>;

template <std::size_t N, class Visit>
void ForPositions(Visit visit) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (visit(std::integral_constant<std::size_t, I + 1>{}), ...);
    }
    (std::make_index_sequence<N>{});
}

/// Calls `visit(position, value)` for every value of a message in its order.
template <class Visit>
class Walker {
public:
    explicit Walker(Visit visit) : visit_(std::move(visit)) {}

    template <class... Types>
    void Walk(base::MessageOf<Types...>& message) {
        (Walk(message.template Child<typename base::ElementOf<Types>::Type>()), ...);
    }

private:
    template <base::HL7Name kName, class... Types>
    void Walk(base::GroupOf<kName, Types...>& group) {
        (Walk(group.template Child<typename base::ElementOf<Types>::Type>()), ...);
    }

    template <class T>
    void Walk(base::HL7Occurrences<T>& occurrences) {
        for (int index = 0; index < occurrences.Count(); ++index) {
            Walk(*occurrences.GetAt(index));
        }
    }

    template <base::HL7Name kName, class... Types>
    void Walk(base::SegmentOf<kName, Types...>& segment) {
        std::string name(segment.Name());
        const int occurrence = ++occurrences_[name];
        if (occurrence > 1) {
            name += "[" + std::to_string(occurrence) + "]";
        }
        ForPositions<sizeof...(Types)>(
            [&](auto position) { Descend(name + "-" + std::to_string(position), segment.template Field<position>()); });
    }

    template <class... Types>
    void Descend(const std::string& position, base::CompositeOf<Types...>& composite) {
        ForPositions<sizeof...(Types)>(
            [&](auto part) { Descend(position + "." + std::to_string(part), composite.template Component<part>()); });
    }

    void Descend(const std::string& position, base::HL7DataType& value) { visit_(position, value); }

    Visit visit_;
    std::map<std::string, int> occurrences_;
};

std::string Input() {
    return {std::istreambuf_iterator<char>(std::cin), {}};
}

/// Segments without values, in the order in which the positions name them first.
std::string Skeleton(const std::vector<std::string>& positions) {
    std::string text = "MSH|\r";
    std::string last = "MSH";
    for (const std::string& position : positions) {
        const std::string segment = position.substr(0, position.find('-'));
        if (segment != last) {
            text += segment.substr(0, 3) + "|\r";
            last = segment;
        }
    }
    return text;
}

template <class Message>
int Encode() {
    Values values;
    std::vector<std::string> positions;
    const std::string input = Input();
    for (std::size_t start = 0; start < input.size();) {
        const std::size_t end = std::min(input.find('\n', start), input.size());
        const std::size_t equals = input.find('=', start);
        if (equals >= end) {
            std::cerr << "not a line POSITION=VALUE: " << input.substr(start, end - start) << "\n";
            return 1;
        }
        positions.push_back(input.substr(start, equals - start));
        values[positions.back()] = input.substr(equals + 1, end - equals - 1);
        start = end + 1;
    }

    Message message;
    std::string skeleton = Skeleton(positions);
    if (message.Decode(skeleton) != 1 || !skeleton.empty()) {
        std::cerr << "these segments do not make up the message\n";
        return 1;
    }
    Walker([&values](const std::string& position, base::HL7DataType& value) {
        if (const auto found = values.find(position); found != values.end()) {
            value.SetValue(found->second);
            values.erase(found);
        }
    }).Walk(message);
    for (const auto& [position, value] : values) {
        std::cerr << "no such position in the message: " << position << "\n";
    }
    std::cout << message.Encode();
    return values.empty() ? 0 : 1;
}

template <class Message>
int Decode() {
    Message message;
    std::string text = Input();
    const int result = message.Decode(text);
    Walker([](const std::string& position, const base::HL7DataType& value) {
        if (!value.GetValue().empty()) {
            std::cout << position << "=" << value.GetValue() << "\n";
        }
    }).Walk(message);
    if (result != 1 || !text.empty()) {
        std::cerr << "decoded with result " << result << ", left over: " << text << "\n";
        return 1;
    }
    return 0;
}

struct Commands {
    int (*encode)();
    int (*decode)();
};

template <class Message>
constexpr Commands kCommands = {&Encode<Message>, &Decode<Message>};

}  // namespace

int main(int count, char** arguments) {
    const std::map<std::string, Commands> messages = {{"ACK", kCommands<ACK>},         {"OML_O33", kCommands<OML_O33>},
                                                      {"ORL_O34", kCommands<ORL_O34>}, {"OUL_R22", kCommands<OUL_R22>},
                                                      {"QBP_Q11", kCommands<QBP_Q11>}, {"QBP_Q13", kCommands<QBP_Q13>},
                                                      {"RSP_K11", kCommands<RSP_K11>}, {"RTB_K13", kCommands<RTB_K13>}};
    const std::string command = count == 3 ? arguments[1] : "";
    const auto found = messages.find(count == 3 ? arguments[2] : "");
    if (found != messages.end() && command == "encode") {
        return found->second.encode();
    }
    if (found != messages.end() && command == "decode") {
        return found->second.decode();
    }
    std::cerr << "usage: zelrm_hl7_tool encode|decode MESSAGE\n";
    return 2;
}
