#include "runtime/AgentEntry.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "actions/ActionCallback.h"
#include "actions/TaskDeclarations.h"
#include "actions/TaskLibrary.h"
#include "collection/VXClientClass.h"
#include "collection/schedule/RefreshThread.h"
#include "collection/schedule/ThreadPool.h"
#include "collection/status/StatusTables.h"
#include "config/subnodes/SubnodeManager.h"
#include "foundation/Corrections.h"
#include "foundation/FatalExit.h"
#include "foundation/Locale.h"
#include "foundation/Trace.h"
#include "platform/rnq.h"
#include "platform/zhb.h"
#include "platform/zsb.h"
#include "runtime/reference/Application.h"
#include "runtime/reference/AttributeGroupMeta.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

constexpr const char* kStatusGroup = "Performance_Object_Status";
constexpr long kThreadEndMilliseconds = 2000;

enum { kReferenceFileFatal = -1, kVersionFatal = -99 };

void makeStatusTable() {
    AttributeGroupMeta* meta = findAttributeGroupMeta(kStatusGroup);
    if (!meta) return;
    queryClassList->addClientClass(new PerfObjectStatus("ZAG", kStatusGroup, queryClassList, meta));
}

// The instance that a program file carries in its name, between "agent_" and the next '.'.
std::string instanceFromProgramName(const char* program) {
    TRACE_FUNCTION();
    std::string folded = program;
    std::string pattern = "agent_";
    ZSV1_ToLower(folded.data());
    ZSV1_ToLower(pattern.data());
    const std::size_t slash = folded.rfind('/');
    const std::size_t found = folded.find(pattern, slash == std::string::npos ? 0 : slash + 1);
    if (found == std::string::npos) return "";
    trace_detail("Going to extract instance name from %s", program);
    const std::string rest = program + found;
    const std::size_t start = rest.find('_') + 1;
    const std::string instance = rest.substr(start, rest.find('.', start) - start);
    trace_detail("Got instance name = %s\n", instance.c_str());
    return instance;
}

}  // namespace

bool deriveInstanceName(int argc, const char* const* argv, const char* hostPrefix, char** instance) {
    TRACE_FUNCTION();
    *instance = nullptr;
    if (argc > 2 && std::strcmp(argv[2], "TEST") == 0) {
        *instance = strdup(argv[1]);
        trace_detail("Got instance name = %s\n", *instance);
        return true;
    }
    if (argc == 2) {
        const char* argument = argv[1];
        const std::size_t prefix = hostPrefix ? std::strlen(hostPrefix) : 0;
        if (hostPrefix && std::strncmp(argument, hostPrefix, prefix) == 0 && std::strlen(argument) > prefix + 1) {
            *instance = strdup(argument + prefix + 1);
            trace_detail("Got instance using hostname - name = %s\n", *instance);
            return true;
        }
        if (hostPrefix) {
            trace_detail("Instance arg is not host_inst - %s, host - %s, so use Instance arg", argument, hostPrefix);
        }
        const char* separator = std::strrchr(argument, '_');
        if (!separator) {
            trace_error("Instance value is null-Not able to find the separator");
            return false;
        }
        *instance = strdup(separator + 1);
        trace_detail("Got instance using _ location - name = %s\n", *instance);
        return true;
    }
    if (argc == 1) *instance = strdup(instanceFromProgramName(argv[0]).c_str());
    return true;
}

void* AgPreInit(int argc, char** argv) {
    TRACE_FUNCTION();
    applicationLocale = ZLC2_GetLocale();
    ZSV1_Main(&argc, argv, "windows_dp");  // kept: the literal is the same on every platform
    rnq_enable(correctionIsOn("event-console"));
    taskLibrary = new TaskLibrary("HBX");
    queryClassList = new VXClientClassList;
    char* instance = nullptr;
    if (!deriveInstanceName(argc, argv, ZSV1_GetEnv("AGHBX_HOSTNAME"), &instance)) return nullptr;
    instanceName.copy(instance ? instance : "");
    std::free(instance);
    const char* reference = ZSV1_GetEnv("AGENT_REF_FILE");
    trace_detail("AGENT_REF_FILE = %s", reference ? reference : "");
    if (!initFromFile(reference)) {
        trace_error("ERROR: agent ref loading error");
        exit_with_notification(kReferenceFileFatal);
    }
    if (!agentInfo[0]) {  // no `appl` in the file
        trace_error("The reference file has no appl element; the application has no name and no configuration");
        for (const char*& text : agentInfo) text = "";
    }
    makeStatusTable();
    return agentInfo;
}

int AgInit() {
    TRACE_FUNCTION();
    char versionText[9] = "";
    HBX_SetVersionUsingProduct(nodeType.c_str(), versionText, sizeof versionText);
    HBX_SetNodeType(nodeType.c_str());
    HBX_SetAffinity(affinity.c_str());
    const char first = *affinity.c_str();
    if (first == '%' || first == '&') {
        const int number = std::atoi(internalAgentVersion.c_str());
        if (number < 1 || number > 12) {
            trace_error("Unsupported agent version used: %d", number);
            exit_with_notification(kVersionFatal);
        }
        char text[16];
        std::snprintf(text, sizeof text, "AFF_V%d", number);
        HBX_SetAffinity(text);
    } else {
        HBX_SetAffinity(internalAgentVersion.c_str());
    }
    HBX_RegisterAgentLoader(load_agents);
    HBX_RegisterCommandCallback("*", actionCallback);
    declareTasks();
    return 0;
}

void stop_exit() {
    TRACE_FUNCTION();
    trace_detail("the process ends");
}

void AgTerminate() {
    TRACE_FUNCTION();
    HBX_Shutdown(1);
    const bool quiet = stopBackgroundThreads(kThreadEndMilliseconds);
    if (!quiet || HBX_RequestsRunning() > 0) {
        // What still runs may use any of the objects: they end with the process.
        trace_error("Collections are still running; their objects are left to the end of the process");
        return;
    }
    if (taskLibrary) taskLibrary->setTakeActionStatus(nullptr);  // goes with the query classes
    deleteSubnodeManager();  // its clones share names and metrics with the classes they were made from
    if (queryClassList) {
        ListCursor cursor = queryClassList->getClassListCursor();
        while (cursor.hasMoreElements()) {
            auto* queryClass = static_cast<VXClientClass*>(cursor.getCurrentElement());
            cursor.setToNext();
            trace_detail("About to free element at %p", static_cast<void*>(queryClass));
            queryClassList->removeClientClass(queryClass);
            delete queryClass;
        }
    }
    deleteAllMetadata();
    if (taskLibrary) taskLibrary->sendDownHeartBeat();
    delete taskLibrary;
    taskLibrary = nullptr;
    delete queryClassList;
    queryClassList = nullptr;
}
