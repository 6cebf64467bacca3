#pragma once
// Owning holders for the C resources the service, the simulated tool and the command-line
// client handle: a file, a cJSON tree and a text printed from one, a GVariant, a g_malloc'd
// text, a GError, and a configuration file's lock as a scope guard. With these a function
// can return early on any path without leaking or leaving a lock held; this header is the
// one place that releases such resources by hand.
#include <cjson/cJSON.h>
#include <glib.h>

#include <cstdio>
#include <memory>
#include <utility>

struct FileClose_ST {
  void operator()(FILE* z_o_File) const { std::fclose(z_o_File); }
};
using File_T = std::unique_ptr<FILE, FileClose_ST>;

struct CJsonDelete_ST {
  void operator()(cJSON* z_o_Tree) const { cJSON_Delete(z_o_Tree); }
};
using CJsonTree_T = std::unique_ptr<cJSON, CJsonDelete_ST>;
struct CJsonTextDelete_ST {
  void operator()(char* z_c_Text) const { cJSON_free(z_c_Text); }
};
using CJsonText_T = std::unique_ptr<char, CJsonTextDelete_ST>;

struct VariantUnref_ST {
  void operator()(GVariant* z_o_Value) const { g_variant_unref(z_o_Value); }
};
using Variant_T = std::unique_ptr<GVariant, VariantUnref_ST>;

struct GFree_ST {
  void operator()(void* z_v_Mem) const { g_free(z_v_Mem); }
};
using GChars_T = std::unique_ptr<char, GFree_ST>;

// A GError filled through an out parameter: pass f_Out() to the GLib call, test the holder,
// read f_Message(). f_Out() drops an error left from an earlier call first.
class GErrorHolder_CL {
 public:
  GErrorHolder_CL() = default;
  ~GErrorHolder_CL() { f_Reset(); }
  GErrorHolder_CL(const GErrorHolder_CL&) = delete;
  GErrorHolder_CL& operator=(const GErrorHolder_CL&) = delete;

  GError** f_Out() {
    f_Reset();
    return &z_o_Error;
  }
  GError* get() const { return z_o_Error; }
  explicit operator bool() const { return z_o_Error != nullptr; }
  GError* operator->() const { return z_o_Error; }
  const char* f_Message() const { return z_o_Error != nullptr ? z_o_Error->message : ""; }
  // Hands the error over (to g_task_return_error and the like); the holder is empty after.
  GError* f_Release() { return std::exchange(z_o_Error, nullptr); }
  void f_Reset() {
    if (z_o_Error != nullptr) g_error_free(std::exchange(z_o_Error, nullptr));
  }

 private:
  GError* z_o_Error = nullptr;
};

// Holds a configuration file's lock for one scope. Works with any object that has
// f_LockFile(int i_TimeoutMs) returning 0 on success and f_UnlockFile() (the JSON
// configuration files of the library). f_Locked() tells whether the lock was taken.
template <class Lockable_T>
class FileLockGuard_CL {
 public:
  FileLockGuard_CL(Lockable_T& o_File, int i_TimeoutMs)
      : o_File(o_File), b_Locked(o_File.f_LockFile(i_TimeoutMs) == 0) {}
  ~FileLockGuard_CL() {
    if (b_Locked) o_File.f_UnlockFile();
  }
  FileLockGuard_CL(const FileLockGuard_CL&) = delete;
  FileLockGuard_CL& operator=(const FileLockGuard_CL&) = delete;

  bool f_Locked() const { return b_Locked; }

 private:
  Lockable_T& o_File;
  bool b_Locked;
};
