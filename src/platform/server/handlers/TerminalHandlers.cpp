// Broadcast partitions and terminals (the broadcast elements the operator picks from).

#include <algorithm>

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/speakers/SpeakerSim.h"

namespace Platform {

namespace {

// Request: {"BroadcastPatitionRequest":{"SearchCriteria":{"BroadcastPatitionName":""}}}
// Data: {"BroadcastPatitionList":{"BroadcastPatition":[{"ID":1,"BaseInfo":{"Name":"Main building"}}]}}
RestResponse Partitions(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const std::string name =
        Json::GetString(body, "BroadcastPatitionRequest/SearchCriteria/BroadcastPatitionName");
    Json::CWriter w;
    w.BeginObject().BeginObject("BroadcastPatitionList").BeginArray("BroadcastPatition");
    for (const Partition& p : context.fixture.partitions) {
        if (!ContainsNoCase(p.name, name)) {
            continue;
        }
        w.BeginObject()
            .Int("ID", p.id)
            .BeginObject("BaseInfo")
            .String("Name", p.name)
            .EndObject()
            .EndObject();
    }
    w.EndArray().EndObject().EndObject();
    return Ok(w.Text());
}

void WriteTerminal(Json::CWriter& w, const Element& e, bool online) {
    w.BeginObject().Int("ID", e.id);
    w.BeginObject("BaseInfo").String("Name", e.name);
    // A terminal outside every partition has no list at all.
    if (!e.partitionIds.empty()) {
        w.IntArray("BroadcastPartitionIDList", e.partitionIds);
    }
    w.EndObject();
    w.BeginObject("Config").Int("PeerTaskHandling", e.peerTaskHandling).Int("AudioCount", e.audioCount);
    w.Int("Volume", e.volume).EndObject();
    // The speaker's state now: the fixture's, unless the control interface changed it.
    w.Int("TerminalStatus", online ? 1 : 0);
    w.BeginObject("Area").Int("AreaID", e.areaId).String("AreaName", e.areaName).EndObject();
    w.EndObject();
}

// Request: {"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":true}}}; with "AllPartition"
// false, "BroadcastPatitionID" picks one partition (-1: terminals outside every partition).
// Data: {"BroadcastTerminalsList":{"BroadcastTerminal":[{"ID":1001,"BaseInfo":{"Name":"Hall A",
//   "BroadcastPartitionIDList":[1]},"Config":{"PeerTaskHandling":0,"AudioCount":1,"Volume":70},
//   "TerminalStatus":1,"Area":{"AreaID":10,"AreaName":"Ground floor"}}]}}
RestResponse Terminals(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const bool all = Json::GetBool(body, "BroadcastTerminalsListRequest/SearchCriteria/AllPartition", true);
    const rapidjson::Value* partitionNode =
        Json::Find(body, "BroadcastTerminalsListRequest/SearchCriteria/BroadcastPatitionID");
    if (!all && !Json::IsInt(partitionNode)) {
        return PlatformError(kErrBadRequest,
                             "\"AllPartition\" false needs an integer \"BroadcastPatitionID\"");
    }
    const int partition = static_cast<int>(Json::ToInt(partitionNode, -1));
    const std::string name =
        Json::GetString(body, "BroadcastTerminalsListRequest/SearchCriteria/BroadcastTerminalName");
    Json::CWriter w;
    w.BeginObject().BeginObject("BroadcastTerminalsList").BeginArray("BroadcastTerminal");
    for (const Element& e : context.fixture.elements) {
        if (!all) {
            const bool inPartition = partition == -1 ? e.partitionIds.empty()
                                                     : std::find(e.partitionIds.begin(), e.partitionIds.end(),
                                                                 partition) != e.partitionIds.end();
            if (!inPartition) {
                continue;
            }
        }
        if (ContainsNoCase(e.name, name)) {
            WriteTerminal(w, e, context.site.Speakers().IsOnline(e.id));
        }
    }
    w.EndArray().EndObject().EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddTerminalRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(
        router, context,
        {{"GET", PluginPath("/TerminalManagement/Partitions"), RouteAccess::kSession, WithBody<Partitions>},
         {"GET", PluginPath("/TerminalManagement/BroadcastTerminals"), RouteAccess::kSession,
          WithBody<Terminals>}});
}

}  // namespace Platform
