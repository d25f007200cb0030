#include "Process/PlugInManager.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <vector>

#include <json/json.h>

#include <OcppRecords.h>

#include "OcppProtocol/MessageCallBack.h"
#include "Util/CriticalSectionManager.h"
#include "Util/FileUtil.h"
#include "Util/Tools.h"

namespace {
pthread_mutex_t g_listFileSection = PTHREAD_MUTEX_INITIALIZER;
std::string g_listFile = CPlugInManager::kDefaultListFile;

// A list of at most 100 short entries; anything far larger is not a list.
const off_t kMaxListFileBytes = 1024 * 1024;
// Plug-in texts are C strings by contract; this bounds the read if one is not.
const size_t kMaxPlugInText = 4096;

const int kCommandGetV2GWhiteList = 7;
}  // namespace

const char* const CPlugInManager::kDefaultListFile = "/usrfs/conf/ocpp20/pluginlist.json";

PlugInItem::~PlugInItem() {
    if (plugin != nullptr) {
        if (initialised) plugin->OnStop();
        plugin->Destroy(handle);
    }
    if (handle != nullptr) dlclose(handle);
}

void CPlugInManager::SetPlugInListFile(const std::string& path) {
    OCPP_SECTION(&g_listFileSection);
    g_listFile = path;
}

std::string CPlugInManager::GetPlugInListFile() {
    OCPP_SECTION(&g_listFileSection);
    return g_listFile;
}

CPlugInManager::CPlugInManager() { pthread_mutex_init(&m_mutex, nullptr); }

CPlugInManager::~CPlugInManager() {
    RemoveAll();
    pthread_mutex_destroy(&m_mutex);
}

// Never freed (threads may hold the pointer); a release unloads every plug-in.
void CPlugInManager::ResetInPlace() {
    RemoveAll();
    OCPP_SECTION(&m_mutex);
    m_listFile.clear();
}

int CPlugInManager::ReadAllPlugInInfo(const std::string& path) {
    {
        OCPP_SECTION(&m_mutex);
        m_listFile = path;
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        LOG_ERROR("%s not exist", path.c_str());
        return 0;
    }
    std::string text;
    if (st.st_size > kMaxListFileBytes || !CFileUtil::ReadFile(path, text)) {
        LOG_ERROR("%s can not be read", path.c_str());
        return 0;
    }
    Json::Value root;
    const bool parsed = CTools::ParseJson(text, root);
    if (!parsed) {
        LOG_ERROR("%s json parse failed", path.c_str());
        return 0;
    }
    const int size = root.isArray() ? static_cast<int>(root.size()) : 0;
    if (size < 1 || size > kMaxPlugIns) {
        LOG_ERROR("Invalid plugin size: %d", size);
        return 0;
    }

    RemoveAllPlugInInfo();
    std::vector<std::string> autorun;
    for (const Json::Value& entry : root) {
        if (!entry.isObject() || !entry["name"].isString()) continue;
        const std::string name = entry["name"].asString();
        const std::string file = entry["path"].isString() ? entry["path"].asString() : std::string();
        LOG_INFO("read pluginInfo=>name:%s path:%s", name.c_str(), file.c_str());
        PlugInInfo info;
        memset(&info, 0, sizeof info);
        // A cut name or path would name another plug-in or another file.
        if (name.empty() || name.size() >= sizeof info.name || file.size() >= sizeof info.path) {
            LOG_ERROR("%s plugin name or path too long", name.substr(0, 100).c_str());
            continue;
        }
        CTools::CopyField(info.name, name);
        CTools::CopyField(info.path, file);
        if (RegisPlugInInfo(info.name, &info) != 1) continue;
        const Json::Value& run = entry["autorun"];
        if (run.isBool() && run.asBool()) autorun.push_back(name);
    }
    // Loading runs plug-in code; no lock is held for it.
    for (const std::string& name : autorun) UsePlugIn(name);
    return 1;
}

int CPlugInManager::ReReadAllPlugInInfo() {
    std::string path;
    {
        OCPP_SECTION(&m_mutex);
        path = m_listFile;
    }
    RemoveAllPlugInInfo();
    return ReadAllPlugInInfo(path);
}

int CPlugInManager::RegisPlugInInfo(const char* name, const PlugInInfo* info) {
    if (name == nullptr || info == nullptr) {
        LOG_ERROR("RegisPlugInInfo eror");
        return 0;
    }
    const std::string key(name, strnlen(name, sizeof info->name - 1));
    OCPP_SECTION(&m_mutex);
    if (m_registry.count(key) != 0) {
        LOG_ERROR("%s plugInInfo is existed", key.c_str());
        return 0;
    }
    std::unique_ptr<PlugInInfo> copy(new PlugInInfo(*info));
    copy->name[sizeof copy->name - 1] = '\0';
    copy->path[sizeof copy->path - 1] = '\0';
    m_registry[key] = std::move(copy);
    return 1;
}

int CPlugInManager::IsSupportPlugIn(const std::string& name) {
    OCPP_SECTION(&m_mutex);
    return m_registry.count(name) != 0 ? 1 : 0;
}

int CPlugInManager::UsePlugIn(const std::string& name) {
    std::string path;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_registry.find(name);
        if (it != m_registry.end()) path = it->second->path;
        else {
            LOG_ERROR("%s not support", name.c_str());
            return 0;
        }
    }
    if (LoadPlugIn(name, path) != 1) return 0;
    return InitPlugIn(name);
}

int CPlugInManager::LoadPlugIn(const std::string& name, const std::string& path) {
    {
        OCPP_SECTION(&m_mutex);
        if (m_loaded.count(name) != 0) {
            LOG_INFO("%s is existed", name.c_str());
            return 1;
        }
    }
    void* handle = dlopen(path.c_str(), RTLD_LAZY);
    if (handle == nullptr) {
        const char* error = dlerror();
        LOG_ERROR("%s Failed to load plugin: %s", name.c_str(), error ? error : "");
        return 0;
    }
    dlerror();
    CreatePluginFunc create = reinterpret_cast<CreatePluginFunc>(dlsym(handle, "CreatePlugin"));
    if (create == nullptr) {
        const char* error = dlerror();
        LOG_ERROR("%s Failed to load symbol: %s", name.c_str(), error ? error : "");
        dlclose(handle);
        return 0;
    }
    PlugIn::CPluginBase* plugin = create();
    if (plugin == nullptr) {
        LOG_ERROR("%s Failed to load symbol: %s", name.c_str(), "CreatePlugin returned no plugin");
        dlclose(handle);
        return 0;
    }
    // Declared before the lock so that a losing instance is destroyed after it.
    auto item = std::make_shared<PlugInItem>(handle, plugin);
    {
        OCPP_SECTION(&m_mutex);
        // Another thread may have loaded it meanwhile: the first instance stays.
        if (!m_loaded.emplace(name, item).second) LOG_INFO("%s is existed", name.c_str());
    }
    return 1;
}

int CPlugInManager::InitPlugIn(const std::string& name) {
    std::shared_ptr<PlugInItem> item;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_loaded.find(name);
        if (it == m_loaded.end()) {
            LOG_ERROR("%s not load", name.c_str());
            return 0;
        }
        item = it->second;
        // Engines use a plug-in before each send; it is started only once.
        if (item->initialised) return 1;
        item->initialised = true;
    }
    item->plugin->SetLogCallback(&CPlugInManager::PlugIn_OnLog);
    item->plugin->SetMessageCallBack(&CPlugInManager::PlugIn_OnMessage);
    item->plugin->OnStart();
    return 1;
}

int CPlugInManager::IsUsingPlugIn(const std::string& name) {
    OCPP_SECTION(&m_mutex);
    if (m_registry.count(name) != 0 && m_loaded.count(name) != 0) return 1;
    LOG_INFO("%s not using", name.c_str());
    return 0;
}

std::shared_ptr<PlugInItem> CPlugInManager::FindLoaded(const std::string& name) {
    OCPP_SECTION(&m_mutex);
    auto it = m_loaded.find(name);
    if (it == m_loaded.end()) return nullptr;
    return it->second;
}

int CPlugInManager::SendMsgToPlugIn(const std::string& name, const char* data, int length) {
    return SendMsgToPlugIn(name, data, length, nullptr, nullptr);
}

int CPlugInManager::SendMsgToPlugIn(const std::string& name, const char* data, int length, char* answer,
                                    int* answerLength) {
    std::shared_ptr<PlugInItem> item = FindLoaded(name);
    if (!item) {
        LOG_ERROR("%s not use", name.c_str());
        return 0;
    }
    if (length < 0 || (data == nullptr && length > 0)) return 0;
    if (answer == nullptr || answerLength == nullptr) {
        LOG_INFO("发送异步消息给插件:%s", name.c_str());
        return item->plugin->SendAsyncMessage(data, length);
    }
    const int capacity = *answerLength;
    if (capacity <= 0) return 0;
    LOG_INFO("发送同步消息给插件:%s", name.c_str());
    // The plug-in writes into a scratch buffer one byte short of the caller's;
    // only what fits is copied back, so a wrong length cannot overrun.
    std::vector<char> scratch(static_cast<size_t>(capacity), '\0');
    int written = capacity - 1;
    const int result = item->plugin->SendSyncMessage(data, length, scratch.data(), &written);
    if (written < 0) written = 0;
    if (written > capacity - 1) written = capacity - 1;
    memcpy(answer, scratch.data(), static_cast<size_t>(written));
    answer[written] = '\0';
    *answerLength = written;
    return result;
}

int CPlugInManager::UnUsePlugIn(const std::string& name) {
    std::shared_ptr<PlugInItem> item;
    {
        OCPP_SECTION(&m_mutex);
        auto it = m_loaded.find(name);
        if (it == m_loaded.end()) {
            LOG_ERROR("%s not use", name.c_str());
            return 0;
        }
        item = std::move(it->second);
        m_loaded.erase(it);
    }
    // Stopped, destroyed and closed here, or by the last send still running.
    item.reset();
    return 1;
}

void CPlugInManager::UnLoadAllPlugIn() {
    std::unordered_map<std::string, std::shared_ptr<PlugInItem>> loaded;
    {
        OCPP_SECTION(&m_mutex);
        loaded.swap(m_loaded);
    }
    loaded.clear();
}

void CPlugInManager::RemoveAllPlugInInfo() {
    OCPP_SECTION(&m_mutex);
    m_registry.clear();
}

void CPlugInManager::RemoveAll() {
    UnLoadAllPlugIn();
    RemoveAllPlugInInfo();
}

void CPlugInManager::PlugIn_OnLog(PlugIn::PLUGINLOGLEVEL level, const char* text) {
    if (text == nullptr) return;
    int lvl = static_cast<int>(level);
    if (lvl < OCPP_LOG_DEBUG || lvl > OCPP_LOG_ERROR) lvl = OCPP_LOG_DEBUG;
    const int len = static_cast<int>(strnlen(text, kMaxPlugInText));
    CTools::Log(lvl, __FUNCTION__, __FILE__, __LINE__, "%.*s", len, text);
}

void CPlugInManager::PlugIn_OnMessage(const char* pluginName, const char* message, int length) {
    const int nameLen = pluginName ? static_cast<int>(strnlen(pluginName, sizeof(PlugInInfo::name) - 1)) : 0;
    if (message == nullptr || length < static_cast<int>(sizeof(int32_t))) {
        LOG_ERROR("plugin:%.*s message too short: %d", nameLen, pluginName ? pluginName : "", length);
        return;
    }
    int32_t command;
    memcpy(&command, message, sizeof command);
    LOG_INFO("ocpp recv plugin:%.*s command id:%d", nameLen, pluginName ? pluginName : "", (int)command);
    if (command != kCommandGetV2GWhiteList) return;
    GetV2GWhiteList record;
    memset(&record, 0, sizeof record);
    record.base.type = SERVERRECVTYPE_GETV2GWHITELIST;
    CMessageCallBack::GetInstance()->OnMessage(reinterpret_cast<const char*>(&record), sizeof record, 0);
}
