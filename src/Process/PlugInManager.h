#pragma once
#include <pthread.h>

#include <memory>
#include <string>
#include <unordered_map>

#include <PluginBase.h>

#include "Util/Singleton.h"

struct PlugInInfo {
    char name[101];
    char path[513];
};

// One loaded plug-in. Shared so that a send in progress keeps the library
// mapped while another thread unloads it; the last owner closes it.
struct PlugInItem {
    PlugInItem(void* h, PlugIn::CPluginBase* p) : handle(h), plugin(p) {}
    ~PlugInItem();
    PlugInItem(const PlugInItem&) = delete;
    PlugInItem& operator=(const PlugInItem&) = delete;

    void* handle;
    PlugIn::CPluginBase* plugin;
    bool initialised = false;  // under the manager's lock
};

// Optional shared-library extensions listed in a JSON file, loaded by name.
class CPlugInManager : public CSingleton<CPlugInManager> {
public:
    // Where the list lives; survives Release. Tests point it at their own file.
    static void SetPlugInListFile(const std::string& path);
    static std::string GetPlugInListFile();
    static const char* const kDefaultListFile;
    static const int kMaxPlugIns = 100;

    int ReadAllPlugInInfo(const std::string& path);
    int ReReadAllPlugInInfo();
    int RegisPlugInInfo(const char* name, const PlugInInfo* info);
    int IsSupportPlugIn(const std::string& name);
    int UsePlugIn(const std::string& name);
    int LoadPlugIn(const std::string& name, const std::string& path);
    int InitPlugIn(const std::string& name);
    int IsUsingPlugIn(const std::string& name);
    // Asynchronous send.
    int SendMsgToPlugIn(const std::string& name, const char* data, int length);
    // With `answer` (capacity in `*answerLength`): synchronous; the answer is
    // NUL-terminated and its length stored back. Without: asynchronous.
    int SendMsgToPlugIn(const std::string& name, const char* data, int length, char* answer, int* answerLength);
    int UnUsePlugIn(const std::string& name);
    void UnLoadAllPlugIn();
    void RemoveAllPlugInInfo();
    void RemoveAll();

    // Callbacks handed to every plug-in.
    static void PlugIn_OnLog(PlugIn::PLUGINLOGLEVEL level, const char* text);
    static void PlugIn_OnMessage(const char* pluginName, const char* message, int length);

private:
    friend class CSingleton<CPlugInManager>;
    CPlugInManager();
    ~CPlugInManager();
    std::shared_ptr<PlugInItem> FindLoaded(const std::string& name);
    void ResetInPlace();

    pthread_mutex_t m_mutex;
    std::unordered_map<std::string, std::unique_ptr<PlugInInfo>> m_registry;
    std::unordered_map<std::string, std::shared_ptr<PlugInItem>> m_loaded;
    std::string m_listFile;
};
