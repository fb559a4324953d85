#include "zqcore/ccallback.h"

constinit Callbacker_T<bool> g_ExecutionCallbacker;
constinit Callbacker_T<int> g_CommandCallbacker;
constinit Callbacker_T<void> g_LoadingCallbacker;
constinit Callbacker_T<void> g_RenderCallbacker;
constinit Callbacker_T<bool> g_ActiveCallbacker;
constinit Callbacker_T<void> g_SizeCallbacker;
constinit Callbacker_T<void> g_IdleCallbacker;
constinit Callbacker_T<int> g_InitMenuCallbacker;
constinit Callbacker_T<MessageData_s> g_FullscreenCallbacker;
constinit Callbacker_T<MessageData_s> g_MouseCallbacker;
constinit Callbacker_T<MessageData_s> g_KeyboardCallbacker;
constinit Callbacker_T<MessageData_s> g_JoystickCallbacker;
constinit Callbacker_T<char> g_CharCallbacker;
constinit Callbacker_T<MessageData_s> g_ApplicationMessages;
constinit Callbacker_T<char const *> g_FileReadErrorCallbacker;
constinit Callbacker_T<MessageData_s> g_NetworkCallbacker;
constinit Callbacker_T<bool> g_FullscreenSwitchCallbacker;
constinit Callbacker_T<char const *> g_FileTrackChangesCallbacker;
constinit Callbacker_T<char const *> g_AddSubfolderCallbacker;
constinit Callbacker_T<char const *> g_ResourceLoadCallbacker;
constinit Callbacker_T<char const *> g_WarningsCallbacker;
constinit Callbacker_T<char const *> g_FileOpenCallbacker;
