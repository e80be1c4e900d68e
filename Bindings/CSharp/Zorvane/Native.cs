using System;
using System.Runtime.InteropServices;

namespace Zorvane
{
    /// <summary>The functions of the native library, and its callbacks' types. Texts are UTF-8 with a length.</summary>
    internal static class Native
    {
#if UNITY_IOS && !UNITY_EDITOR
        private const string Library = "__Internal";
#else
        private const string Library = "zranalytics";
#endif

        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void Release(IntPtr data);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void Completed(IntPtr data, int success);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void Log(IntPtr data, int kind, IntPtr message, UIntPtr length, IntPtr file, int line,
            IntPtr operation);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void Transport(IntPtr data, IntPtr request);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void PostTask(IntPtr data, IntPtr task);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate int IsMainThread(IntPtr data);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void BeginTask(IntPtr data, ulong task, IntPtr name);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void EndTask(IntPtr data, ulong task);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void Locale(IntPtr data, int question, IntPtr argument, IntPtr answer);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate long TimeZone(IntPtr data, double seconds);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate int Advertising(IntPtr data, IntPtr identifier);
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        internal delegate void Trigger(IntPtr data, IntPtr name, UIntPtr length, IntPtr record);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_last_status();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_last_error();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_version();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_has_http();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern void zr_free(IntPtr text);

        // Values

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_null();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_bool(int value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_integer(long value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_double(double value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_string(byte[] text, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_bytes(byte[] bytes, UIntPtr size);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_date(double seconds);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_url(byte[] text, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_location(double latitude, double longitude);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_list();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_value_map();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern void zr_value_free(IntPtr value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_append(ValueHandle list, ValueHandle item);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_set(ValueHandle map, byte[] key, UIntPtr length, ValueHandle item);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_set(IntPtr map, byte[] key, UIntPtr length, ValueHandle item);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_kind(IntPtr value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_get_integer(IntPtr value, out long integer);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_get_double(IntPtr value, out double number);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_value_get_location(IntPtr value, out double latitude, out double longitude);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_value_get_text(IntPtr value, out UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_value_get_bytes(IntPtr value, out UIntPtr size);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern UIntPtr zr_value_count(IntPtr container);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_value_item(IntPtr container, UIntPtr index);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_value_key(IntPtr map, UIntPtr index, out UIntPtr length);

        // Properties, conditions, sources

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern PropertiesHandle zr_properties_new();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern void zr_properties_free(IntPtr properties);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_properties_add(PropertiesHandle properties, byte[] name, UIntPtr length,
            ValueHandle value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_properties_add_bool(PropertiesHandle properties, byte[] name, UIntPtr length,
            int value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_properties_add_integer(PropertiesHandle properties, byte[] name, UIntPtr length,
            long value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_properties_add_double(PropertiesHandle properties, byte[] name, UIntPtr length,
            double value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_properties_add_string(PropertiesHandle properties, byte[] name, UIntPtr length,
            byte[] text, UIntPtr textLength);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_properties_set_non_interactive(PropertiesHandle properties, int value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ConditionHandle zr_condition_from_json(byte[] json, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern void zr_condition_free(IntPtr condition);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_condition_check(ConditionHandle condition, byte[] name, UIntPtr length,
            ValueHandle record, out int satisfied);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ValueHandle zr_event_record(byte[] name, UIntPtr length, PropertiesHandle properties);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern SourceHandle zr_source_from_url(byte[] url, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern SourceHandle zr_source_from_push(ValueHandle payload);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern SourceHandle zr_source_from_service_push(ValueHandle payload);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern SourceHandle zr_source_from_map(ValueHandle map);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_source_is_valid(SourceHandle source);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern void zr_source_free(IntPtr source);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_update_sources(IntPtr[] sources, UIntPtr count);

        // Options, start, end

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern OptionsHandle zr_options_new();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern void zr_options_free(IntPtr options);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_endpoint(OptionsHandle options, byte[] url, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_app_id(OptionsHandle options, byte[] appId, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_folder(OptionsHandle options, byte[] path, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_remote_configuration(OptionsHandle options, byte[] json,
            UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_app_status(OptionsHandle options, long status);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_state(OptionsHandle options, int state);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_journal(OptionsHandle options, ulong bytes, double seconds);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_log_to_stderr(OptionsHandle options);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_log(OptionsHandle options, Log log, IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_transport(OptionsHandle options, Transport send, IntPtr data,
            Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_main_loop(OptionsHandle options, PostTask post,
            IsMainThread isMainThread, IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_background_tasks(OptionsHandle options, BeginTask begin, EndTask end,
            IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_locale(OptionsHandle options, Locale locale, IntPtr data,
            Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_time_zone(OptionsHandle options, TimeZone zone, IntPtr data,
            Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_options_set_advertising(OptionsHandle options, Advertising advertising,
            IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_start(OptionsHandle options);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_close(double seconds, out int allSent);

        // In callbacks

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_text_set(IntPtr answer, byte[] text, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_task_run(IntPtr task);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_request_url(IntPtr request, out UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_request_header_name(IntPtr request, UIntPtr index);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_request_header_value(IntPtr request, UIntPtr index);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_request_body(IntPtr request, out UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_request_respond(IntPtr request, int status, byte[] body, UIntPtr length,
            byte[] error);

        // The module

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_lifecycle(int lifecycleEvent);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_enter_foreground();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_enter_background();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_background_task_expired(ulong task);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_track(byte[] name, UIntPtr length, PropertiesHandle properties);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl, EntryPoint = "zr_track")]
        internal static extern int zr_track_plain(byte[] name, UIntPtr length, IntPtr properties);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_flush(Completed completed, IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_disable_periodic_flush();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_flush_interval(long seconds);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_user_attribute(byte[] key, UIntPtr length, ValueHandle value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_user_attribute_date(byte[] key, UIntPtr length, double seconds);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_user_attribute_location(byte[] key, UIntPtr length, double latitude,
            double longitude);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_login(byte[] uniqueId, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_alias(byte[] uniqueId, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_push_preference(int wanted);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_reset_user(Completed completed, IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_init_new_user();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_opt_out_of_data_tracking(int optOut);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_opt_out_of_idfv_tracking(int optOut);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_opt_out_of_idfa_tracking(int optOut);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_update_opt_out_events(ValueHandle names);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_push_consent(byte[] key, UIntPtr length, ValueHandle value);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_sdk_enabled(int enabled);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_app_status(long status);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_smart_trigger_for_app_status(long status);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_track_sdk_version();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_track_reinstall();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_update_device(Completed completed, IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_push_token_updated();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_device_model_attributes();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_track_locale();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_track_advertising_identifier();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_copy_tracked_idfa(out UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_copy_device_registration(out UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_open_url(byte[] url, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_process_url(byte[] url, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_trigger(int slot, Trigger trigger, IntPtr data, Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_update_modules();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_session_started();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_set_app_id(byte[] appId, UIntPtr length, Completed completed, IntPtr data,
            Release release);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int zr_update_remote_configuration(byte[] json, UIntPtr length);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr zr_copy_configuration(out UIntPtr length);
    }
}
