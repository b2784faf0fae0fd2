// The fault script of a description: what goes wrong, at which call or when.
#include "sim/instruments/fault_script.h"

#include "sim/instruments/operations.h"

namespace Tessel::Sim {

namespace {

constexpr int32_t flagBits[] = {1, 2, 4, 8, 16, 32, 64};

FlagFault flagFault(JsonNode &node)
{
    FlagFault fault;
    int flag = 0;
    readChoice(node, "flag", flag,
               {"overflow", "fifoFull", "syncLost", "refLost", "systemError", "active", "countsDropped"});
    fault.Flag = flagBits[flag];
    readPositive(node, "atMs", fault.AtMs);
    readPositive(node, "forMs", fault.ForMs);
    return fault;
}

// False unless exactly one of the keys is there.
bool readAction(JsonNode &node, FaultAction &action)
{
    int found = 0;
    if (find(node, "code") && ++found) {
        int32_t code = -1;
        readInteger(node, "code", code, INT32_MIN, -1);
        action = code;
    }
    if (find(node, "hangMs") && ++found) {
        Hang hang;
        readPositive(node, "hangMs", hang.Ms);
        action = hang;
    }
    if (bool on = false; find(node, "hang") && ++found) {
        readFlag(node, "hang", on);
        action = Hang{};
    }
    if (const boost::json::value *value = find(node, "value"); value && ++found) {
        double number = std::numeric_limits<double>::quiet_NaN();
        if (!value->is_string() || value->get_string() != "nan")
            readNumber(node, "value", number, -endless, endless);
        action = number;
    }
    if (bool on = false; find(node, "endless") && ++found) {
        readFlag(node, "endless", on);
        action = Endless{};
    }
    if (bool on = false; find(node, "flood") && ++found) {
        readFlag(node, "flood", on);
        action = Flood{};
    }
    return found == 1;
}

CallFault callFault(JsonNode &node, const std::string &path)
{
    CallFault fault;
    readText(node, "op", fault.Op);
    if (fault.Op != "*" && !isOperation(fault.Op)) failAt(path + ".op", "is no operation");
    if (find(node, "call")) {
        readInteger(node, "call", fault.From, 1, 9e15);
        fault.To = fault.From;
    }
    readInteger(node, "from", fault.From, 1, 9e15);
    if (find(node, "to")) readInteger(node, "to", fault.To = 0, 1, 9e15);
    readInteger(node, "every", fault.Every, 1, 9e15);
    if (find(node, "flood") && fault.Op != "ReadFiFo") failAt(path + ".flood", "is for ReadFiFo");
    if (!readAction(node, fault.Action)) failAt(path, "needs one of code, hangMs, hang, value, endless, flood");
    return fault;
}

} // namespace

void readFaults(JsonNode &node, std::vector<CallFault> &calls, std::vector<FlagFault> &flags)
{
    readArray(node, "faults", [&](const boost::json::value &value, const std::string &path) {
        JsonNode inner = nodeOf(value, path);
        if (find(inner, "flag"))
            flags.push_back(flagFault(inner));
        else
            calls.push_back(callFault(inner, path));
        checkKeys(inner);
    });
}

} // namespace Tessel::Sim
