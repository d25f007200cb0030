/*
 * Interface of a protocol plug-in (C++ only). A plug-in is a shared library
 * that exports
 *
 *     extern "C" PlugIn::CPluginBase* CreatePlugin(void);
 *
 * The library calls it once per load, installs its callbacks, sends the
 * start-up notification, and later the shut-down notification followed by
 * Destroy. A plug-in needs nothing else from the library to build: this header
 * is self-contained.
 */
#ifndef OCPP_PLUGIN_BASE_H
#define OCPP_PLUGIN_BASE_H

#ifndef __cplusplus
#error "PluginBase.h is a C++ header"
#endif

#include <cstdarg>
#include <cstdio>

namespace PlugIn {

typedef enum { PLUGINLOGLEVEL_DEBUG = 0, PLUGINLOGLEVEL_INFO = 1, PLUGINLOGLEVEL_ERROR = 2 } PLUGINLOGLEVEL;

// Writes one line into the library's diagnostic log.
typedef void (*PluginLogCallBack)(PLUGINLOGLEVEL level, const char* text);

// A plug-in talks back to the library with this: its own name (NUL-terminated,
// at most 100 characters) and a message whose first 4 bytes are the command id
// as a native int32. Command 7 asks the host for the V2G white list.
typedef void (*PluginMessageCallBack)(const char* pluginName, const char* message, int length);

class CPluginBase {
public:
    virtual ~CPluginBase() {}

    // Last call the library makes; `libraryHandle` is the handle the library
    // was opened with (the library closes it afterwards).
    virtual void Destroy(void* libraryHandle) = 0;
    virtual int OnStart() = 0;
    virtual int OnStop() = 0;
    virtual int Reserved1() { return 0; }
    virtual int Reserved2() { return 0; }
    virtual void SetMessageCallBack(PluginMessageCallBack callBack) = 0;
    // Returns the plug-in's result (1 success, 0 failure by convention).
    virtual int SendAsyncMessage(const char* data, int length) = 0;
    // `answer` holds `*answerLength` bytes on entry; the plug-in stores how many
    // it wrote in `*answerLength`.
    virtual int SendSyncMessage(const char* data, int length, char* answer, int* answerLength) = 0;

    void SetLogCallback(PluginLogCallBack callBack) { m_logCallBack = callBack; }

protected:
    void Log(PLUGINLOGLEVEL level, const char* format, ...) __attribute__((format(printf, 3, 4))) {
        if (m_logCallBack == 0) return;
        char text[1024];
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof text, format, args);
        va_end(args);
        m_logCallBack(level, text);
    }

    PluginLogCallBack m_logCallBack = 0;
};

}  // namespace PlugIn

// The factory every plug-in library exports under the name "CreatePlugin".
typedef PlugIn::CPluginBase* (*CreatePluginFunc)(void);

#endif
