// The operation list and the help of one operation.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "tools/operations.h"

namespace qeltool {

namespace {
std::string Upper(const char* text) {
    std::string upper;
    for (const char* c = text; *c != '\0'; ++c)
        upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(*c))));
    return upper;
}
}  // namespace

void PrintOperationList(FILE* out) {
    const char* component = "";
    for (const OperationSpec& op : Operations()) {
        if (std::strcmp(component, op.component) != 0) {
            component = op.component;
            std::fprintf(out, "%s%s\n", op.component == Operations().front().component ? "" : "\n",
                         component);
        }
        std::string usage = op.name;
        for (const Param& param : op.params)
            if (param.name[0] != '-')
                usage += param.defaultValue ? " [" + Upper(param.name) + "]" : " " + Upper(param.name);
        std::fprintf(out, "  %-28s %s\n", usage.c_str(), op.summary);
    }
}

bool PrintOperationHelp(FILE* out, const std::string& name) {
    const OperationSpec* op = FindOperation(name);
    if (op == nullptr) return false;
    std::fprintf(out, "%s: %s\n", op->name, op->summary);
    std::string usage = std::string("qel IN ") + op->name;
    for (const Param& param : op->params) {
        std::string shown = param.name[0] != '-' ? Upper(param.name) : param.name;
        if (param.name[0] == '-' && param.kind != ParamKind::Flag) shown += " VALUE";
        usage += (param.defaultValue != nullptr || param.name[0] == '-') ? " [" + shown + "]" : " " + shown;
    }
    std::fprintf(out, "\nusage: %s OUT\n\nparameters:\n", usage.c_str());
    if (op->params.empty()) std::fprintf(out, "  none\n");
    for (const Param& param : op->params) {
        const std::string shown = param.name[0] != '-' ? Upper(param.name) : param.name;
        std::string line = "  " + shown;
        line.resize(std::max<size_t>(line.size() + 1, 18), ' ');
        line += param.help;
        if (param.defaultValue != nullptr)
            line += std::string(" (default ") + param.defaultValue + ")";
        else if (param.name[0] != '-')
            line += " (required)";
        std::fprintf(out, "%s\n", line.c_str());
    }
    std::fprintf(out, "\naccepts: %s\ncalls:   %s::%s\nexample: %s\n", op->accepts, op->component, op->method,
                 op->example);
    if (op->aliases[0] != '\0') std::fprintf(out, "also:    %s\n", op->aliases);
    return true;
}

}  // namespace qeltool
