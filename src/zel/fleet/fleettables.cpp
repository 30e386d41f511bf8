#include <cstdio>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fleet/fleettable.h"
#include "records/jsonfields.h"
#include "zel/commands.h"
#include "zel/fleet/fleettarget.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// The tables of a fleet: printed, made, and compared with what a server has.

namespace zel {

using namespace fleet;

namespace {

std::vector<std::string> Statements(const FleetOptions& options, const std::string& version) {
    FleetTableForm form;
    form.isOld = IsOldServer(version);
    form.cluster = options.cluster;
    form.retentionDays = options.retentionDays;
    return TableStatements(form);
}

// The one that the address names, where it is missing. Who may make no database may still have one.
bool MakeDatabase(FleetAddress address, FleetFailure* failure) {
    constexpr int unknownDatabase = 81;
    std::string answer;
    if (address.database.empty())
        return true;
    FleetClient inside(address, Interrupted);
    if (inside.Run("SELECT 1", &answer, failure) || failure->code != unknownDatabase)
        return true;
    const std::string name = std::exchange(address.database, "");
    FleetClient outside(address, Interrupted);
    return outside.Run("CREATE DATABASE IF NOT EXISTS `" + name + "`", &answer, failure);
}

// What a column holds, however it is packed.
std::string BareType(std::string type) {
    constexpr std::string_view packed = "LowCardinality(";
    if (type.starts_with(packed) && type.ends_with(')'))
        type = type.substr(packed.size(), type.size() - packed.size() - 1);
    return type;
}

class Check {
public:
    explicit Check(FleetClient& client) : client_(client) {}

    // False when the server can't be asked at all.
    bool Table(std::string_view name, std::span<const FleetColumn> columns, FleetFailure* failure);
    bool Differs() const noexcept { return differs_; }

private:
    void Tell(std::string_view table, const std::string& what, bool isGood) {
        std::printf("%s: %s\n", std::string(table).c_str(), Escaped(what).c_str());
        differs_ = differs_ || !isGood;
    }
    void Columns(std::string_view table, std::span<const FleetColumn> columns,
                 const std::map<std::string, std::string>& there);

    FleetClient& client_;
    bool differs_ = false;
};

void Check::Columns(std::string_view table, std::span<const FleetColumn> columns,
                    const std::map<std::string, std::string>& there) {
    bool isGood = true;
    for (const FleetColumn& column : columns) {
        const std::string name(column.name);
        const auto found = there.find(name);
        const bool isMissing = found == there.end();
        if (!isMissing && BareType(found->second) == column.type)
            continue;
        isGood = false;
        Tell(
            table,
            "the column " + name +
                (isMissing ? " is missing"
                           : " is " + found->second + " and should be " + std::string(column.type)),
            false);
    }
    if (isGood)
        Tell(table, "the columns are as they should be", true);
}

bool Check::Table(std::string_view name, std::span<const FleetColumn> columns,
                  FleetFailure* failure) {
    std::map<std::string, std::string> there;
    JsonFields json;
    SourceFields fields;
    const std::string table(name);
    const auto take = [&](std::string_view line) {
        fields.Clear();
        if (json.Read(line, &fields)) {
            const std::string column(fields.Take("name"));
            there[column] = fields.Take("type");
        }
        return true;
    };
    const bool isThere =
        client_.Select("DESCRIBE TABLE " + table + " FORMAT JSONEachRow", take, failure);
    if (isThere)
        Columns(name, columns, there);
    else if (failure->remedy != FleetRemedy::stop || failure->code == 0)
        return false;
    else
        Tell(name, failure->text, false);
    std::string none;
    const bool mayRead = client_.Run("SELECT host FROM " + table + " LIMIT 0", &none, failure);
    Tell(name, mayRead ? "may be asked" : "can't be asked: " + failure->text, mayRead);
    const bool mayWrite = client_.Insert(name, "", false, failure);
    Tell(name, mayWrite ? "may be written" : "can't be written: " + failure->text, mayWrite);
    return true;
}

}  // namespace

int RunFleetSchema(const FleetOptions& options) {
    for (const std::string& statement : Statements(options, options.serverVersion))
        std::printf("%s;\n", statement.c_str());
    return exitCode::done;
}

int RunFleetInit(const FleetOptions& options) {
    const auto address = AddressOf(options);
    if (!address)
        return exitCode::usage;
    FleetFailure failure;
    if (!MakeDatabase(*address, &failure))
        return TellFailure(failure);
    FleetClient client(*address, Interrupted);
    const std::string version = client.Version(&failure);
    if (version.empty())
        return TellFailure(failure);
    std::string answer;
    for (const std::string& statement : Statements(options, version))
        if (!client.Run(statement, &answer, &failure))
            return TellFailure(failure);
    Say("the tables are at " + address->url + ", version " + Escaped(version));
    return exitCode::done;
}

int RunFleetCheck(const FleetOptions& options) {
    const auto address = AddressOf(options);
    if (!address)
        return exitCode::usage;
    FleetClient client(*address, Interrupted);
    FleetFailure failure;
    const std::string version = client.Version(&failure);
    if (version.empty())
        return TellFailure(failure);
    std::printf("server: version %s\n", Escaped(version).c_str());
    Check check(client);
    if (!check.Table(eventsTable, EventColumns(), &failure) ||
        !check.Table(enrichmentsTable, EnrichmentColumns(), &failure))
        return TellFailure(failure);
    return check.Differs() ? exitCode::losses : exitCode::done;
}

}  // namespace zel
