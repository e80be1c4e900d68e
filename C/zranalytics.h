/* The module from C, and from every language that can call C. C99.
 *
 *   zr_options* options = zr_options_new();
 *   zr_options_set_endpoint(options, "https://collect.example", ZR_NUL);
 *   zr_options_set_app_id(options, "SHOP", ZR_NUL);
 *   zr_options_set_folder(options, "data", ZR_NUL);
 *   zr_start(options);
 *   zr_options_free(options);
 *   zr_track("Opened", ZR_NUL, NULL);
 *   zr_close(10, NULL);
 *
 * There is one module per process: the functions need no handle of it. It starts once and closes once. The process may
 * end at any moment, also without zr_close; what is saved by then goes with the next launch. The library stays loaded
 * until the process ends.
 *
 * Text is UTF-8, given as a pointer and a length in bytes; ZR_NUL as length means that a NUL ends it. The library
 * copies what it keeps. Text that it returns ends with a NUL, which its length does not count. A NULL text is an error.
 *
 * Handles (zr_options, zr_value, zr_properties, zr_builder, zr_condition, zr_source) belong to whoever made them, who
 * frees each with its _free function; that takes NULL, too. They are plain memory: they can be made, used and freed in
 * any state, also before zr_start and after zr_close, if no comment says otherwise. One thread at a time may change a
 * handle; several may read it. A const handle is only read, and may be freed as soon as the call returns.
 *
 * Errors: no function ends the process or throws. A function that returns zr_status returns ZR_OK or an error. One that
 * returns a pointer returns NULL after an error. zr_last_status and zr_last_error say what went wrong. An operation
 * whose gate is closed (the account is inactive, the SDK is disabled, data tracking is opted out) does nothing and
 * returns ZR_OK.
 *
 * Functions of the module, those below "Lifecycle", may be called on any thread between zr_start and zr_close, also
 * from a callback. Before, they return ZR_ERROR_NOT_STARTED; from the moment when zr_close is called, ZR_ERROR_CLOSED
 * (zr_condition_check, zr_event_record and zr_background_task_expired: when it has returned). In a log callback they
 * return ZR_ERROR_CALLBACK.
 *
 * Callbacks are called on the thread that their type names, with no lock held. They must return soon, and must not
 * throw nor leave by longjmp. Each gets the void* that was given with it. If a zr_release function was given too, it is
 * called exactly once with that pointer, when no further call will follow: also when the function that took it fails,
 * and at the latest in zr_close. It runs on any thread. Without zr_close, the end of the process releases nothing.
 */
#ifndef ZRANALYTICS_H
#define ZRANALYTICS_H

#include <stddef.h>
#include <stdint.h>

#if defined(ZR_BUILDING_LIBRARY)
#define ZR_API __attribute__((visibility("default")))
#else
#define ZR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* As the length of a text: a NUL ends it. Equal to SIZE_MAX. */
#define ZR_NUL ((size_t)-1)

/* ---- Errors */

typedef enum zr_status {
  ZR_OK = 0,
  /* NULL where none is allowed, a number out of range, a value of a kind that does not fit, a text in a wrong form. */
  ZR_ERROR_ARGUMENT = 1,
  /* A text is not UTF-8. */
  ZR_ERROR_UTF8 = 2,
  /* A text is not JSON, or JSON of another kind than is needed. */
  ZR_ERROR_JSON = 3,
  /* zr_start has not been called, or has not returned. */
  ZR_ERROR_NOT_STARTED = 4,
  /* zr_start has been called before. */
  ZR_ERROR_STARTED = 5,
  /* zr_close has been called. */
  ZR_ERROR_CLOSED = 6,
  /* The remote configuration has an unknown key or a value of the wrong kind. */
  ZR_ERROR_CONFIGURATION = 7,
  /* The call is not allowed in a callback. */
  ZR_ERROR_CALLBACK = 8,
  /* The call is not allowed on this thread. */
  ZR_ERROR_THREAD = 9,
  /* The time is over. */
  ZR_ERROR_TIMEOUT = 10,
  /* Memory, threads or another resource of the system is missing. */
  ZR_ERROR_SYSTEM = 11
} zr_status;

/* Of the last call on this thread that failed; ZR_OK and "" if none has. The text is one sentence, at most 255 bytes.
 * It is valid until the next failing call on this thread; a call that succeeds leaves both as they are. */
ZR_API zr_status zr_last_status(void);
ZR_API const char* zr_last_error(void);

/* "1.0.0". Static. */
ZR_API const char* zr_version(void);

/* Frees what a zr_copy_ function or zr_value_to_json returned. Takes NULL. */
ZR_API void zr_free(void* text);

/* ---- Values: what attributes are made of */

typedef enum zr_kind {
  ZR_KIND_NULL = 0,
  ZR_KIND_BOOL = 1,
  ZR_KIND_INTEGER = 2,
  ZR_KIND_DOUBLE = 3,
  ZR_KIND_STRING = 4,
  ZR_KIND_BYTES = 5,
  ZR_KIND_DATE = 6,
  ZR_KIND_URL = 7,
  ZR_KIND_LIST = 8,
  ZR_KIND_MAP = 9,
  ZR_KIND_LOCATION = 10,
  /* Only in zr_attribute: any of the kinds above that JSON has, given as JSON text. */
  ZR_KIND_JSON = 11
} zr_kind;

typedef struct zr_value zr_value;

/* Each returns a new value; NULL after an error. Dates are seconds since 1970-01-01 00:00 UTC, locations degrees. bytes
 * may be NULL if size is 0. A boolean is any int: 0 is false, all others are true. */
ZR_API zr_value* zr_value_null(void);
ZR_API zr_value* zr_value_bool(int boolean);
ZR_API zr_value* zr_value_integer(int64_t integer);
ZR_API zr_value* zr_value_double(double number);
ZR_API zr_value* zr_value_string(const char* text, size_t length);
ZR_API zr_value* zr_value_bytes(const void* bytes, size_t size);
ZR_API zr_value* zr_value_date(double seconds_since_1970);
ZR_API zr_value* zr_value_url(const char* text, size_t length);
ZR_API zr_value* zr_value_location(double latitude, double longitude);
/* Empty containers. */
ZR_API zr_value* zr_value_list(void);
ZR_API zr_value* zr_value_map(void);
/* Any JSON value (RFC 8259). 2 is an integer, 2.0 a double, null the null value. */
ZR_API zr_value* zr_value_from_json(const char* json, size_t length);
ZR_API void zr_value_free(zr_value* value);

/* Puts a copy of the item into the container; copies are cheap. A key that is set again keeps its place. */
ZR_API zr_status zr_value_append(zr_value* list, const zr_value* item);
ZR_API zr_status zr_value_set(zr_value* map, const char* key, size_t key_length, const zr_value* item);

/* ZR_KIND_NULL for NULL. */
ZR_API zr_kind zr_value_kind(const zr_value* value);
/* A boolean (1 or 0) or an integer. */
ZR_API zr_status zr_value_get_integer(const zr_value* value, int64_t* integer);
/* A boolean, an integer, a double, or a date's seconds since 1970. */
ZR_API zr_status zr_value_get_double(const zr_value* value, double* number);
ZR_API zr_status zr_value_get_location(const zr_value* value, double* latitude, double* longitude);
/* A string's or URL's text, valid until the value is changed or freed; NULL for other kinds. length may be NULL. */
ZR_API const char* zr_value_get_text(const zr_value* value, size_t* length);
/* As zr_value_get_text; never NULL for bytes, also if size is 0. */
ZR_API const void* zr_value_get_bytes(const zr_value* value, size_t* size);
/* The number of items of a list or map; 0 for other kinds. */
ZR_API size_t zr_value_count(const zr_value* container);
/* An item of a list or map, a key of a map, in insertion order; the item under a key. NULL if there is none. They
 * belong to the container, and are valid until it is changed or freed. */
ZR_API const zr_value* zr_value_item(const zr_value* container, size_t index);
ZR_API const char* zr_value_key(const zr_value* map, size_t index, size_t* length);
ZR_API const zr_value* zr_value_find(const zr_value* map, const char* key, size_t key_length);
/* Compact JSON; free it with zr_free. length may be NULL. What JSON lacks is replaced: a date by ISO 8601 text with
 * milliseconds in UTC, bytes by hexadecimal digits, a URL by its text, a location by "latitude,longitude", an infinity
 * or not-a-number by null. */
ZR_API char* zr_value_to_json(const zr_value* value, size_t* length);

/* ---- Properties: the attributes of an event
 *
 * Attributes with the same name replace each other, but dates and locations add up. A date goes to the event's dates as
 * milliseconds, a location to its locations as text. Bytes become hexadecimal text, a URL its text, null "", in nested
 * maps too; lists stay unchanged. The name "zrv_non_interactive" is not stored: 1 sets the non-interactive flag, 0
 * clears it. An empty name is ZR_ERROR_ARGUMENT. */

typedef struct zr_properties zr_properties;

ZR_API zr_properties* zr_properties_new(void);
/* From a JSON object, or a map, with one attribute for each pair. */
ZR_API zr_properties* zr_properties_from_json(const char* json, size_t length);
ZR_API zr_properties* zr_properties_from_map(const zr_value* map);
ZR_API void zr_properties_free(zr_properties* properties);

/* Any kind of value. */
ZR_API zr_status zr_properties_add(zr_properties* properties, const char* name, size_t name_length,
                                   const zr_value* value);
ZR_API zr_status zr_properties_add_null(zr_properties* properties, const char* name, size_t name_length);
ZR_API zr_status zr_properties_add_bool(zr_properties* properties, const char* name, size_t name_length, int boolean);
ZR_API zr_status zr_properties_add_integer(zr_properties* properties, const char* name, size_t name_length,
                                           int64_t integer);
ZR_API zr_status zr_properties_add_double(zr_properties* properties, const char* name, size_t name_length,
                                          double number);
ZR_API zr_status zr_properties_add_string(zr_properties* properties, const char* name, size_t name_length,
                                          const char* text, size_t length);
ZR_API zr_status zr_properties_add_bytes(zr_properties* properties, const char* name, size_t name_length,
                                         const void* bytes, size_t size);
ZR_API zr_status zr_properties_add_url(zr_properties* properties, const char* name, size_t name_length,
                                       const char* text, size_t length);
ZR_API zr_status zr_properties_add_date(zr_properties* properties, const char* name, size_t name_length,
                                        double seconds_since_1970);
/* "yyyy-MM-dd'T'HH:mm:ss'Z'", with or without ".SSS", in UTC. Other text is ZR_ERROR_ARGUMENT. */
ZR_API zr_status zr_properties_add_iso_date(zr_properties* properties, const char* name, size_t name_length,
                                            const char* text, size_t length);
ZR_API zr_status zr_properties_add_location(zr_properties* properties, const char* name, size_t name_length,
                                            double latitude, double longitude);
/* A non-interactive event neither starts nor extends a session. */
ZR_API zr_status zr_properties_set_non_interactive(zr_properties* properties, int non_interactive);

/* ---- The payload builder: another way to collect attributes, with rules of its own */

typedef struct zr_builder zr_builder;

/* attributes: a map, or NULL for none. Its key "zrv_non_interactive" is removed; the value 1 sets the flag. */
ZR_API zr_builder* zr_builder_new(const zr_value* attributes);
ZR_API void zr_builder_free(zr_builder* builder);
ZR_API zr_status zr_builder_set(zr_builder* builder, const char* key, size_t key_length, const zr_value* value);
/* These two arrive in the event as seconds since 1970 times 1,000,000. For milliseconds, as everywhere else, use
 * zr_builder_set with a date, or zr_builder_set_timestamp. */
ZR_API zr_status zr_builder_set_date(zr_builder* builder, const char* key, size_t key_length,
                                     double seconds_since_1970);
ZR_API zr_status zr_builder_set_iso_date(zr_builder* builder, const char* key, size_t key_length, const char* text,
                                         size_t length);
/* Seconds since 1970. Exactly 0 is ZR_ERROR_ARGUMENT. */
ZR_API zr_status zr_builder_set_timestamp(zr_builder* builder, const char* key, size_t key_length,
                                          double seconds_since_1970);
/* Degrees. A latitude or longitude of exactly 0 is ZR_ERROR_ARGUMENT. */
ZR_API zr_status zr_builder_set_location(zr_builder* builder, const char* key, size_t key_length, double latitude,
                                         double longitude);
ZR_API zr_status zr_builder_set_non_interactive(zr_builder* builder);
/* New properties with what the builder holds now. */
ZR_API zr_properties* zr_builder_properties(const zr_builder* builder);

/* ---- Callbacks */

/* Any thread. See above. May be NULL wherever it is taken. */
typedef void (*zr_release)(void* data);

/* The end of an operation. On a thread of the library, which its operation names. */
typedef void (*zr_completion)(void* data, int success);

/* ---- Options: what the module starts with
 *
 * Everything but endpoint and app_id may be left out. A callback that is set again replaces the earlier one, which is
 * released. Nothing is called before zr_start. */

typedef struct zr_options zr_options;

ZR_API zr_options* zr_options_new(void);
ZR_API void zr_options_free(zr_options* options);

/* The collection service's base URL; slashes at its end are dropped. Without it, or without an app_id, nothing is
 * sent. */
ZR_API zr_status zr_options_set_endpoint(zr_options* options, const char* url, size_t length);
ZR_API zr_status zr_options_set_app_id(zr_options* options, const char* app_id, size_t length);
/* The module's files stand in "Documents", "Library" and "Defaults" below this folder. Default: "zorvane" in
 * $XDG_DATA_HOME or ~/.local/share. Two applications must not share one. A relative path means one below the folder
 * that is current at zr_start. */
ZR_API zr_status zr_options_set_folder(zr_options* options, const char* path, size_t length);
/* The three folders one by one. An empty text keeps the default. */
ZR_API zr_status zr_options_set_folders(zr_options* options, const char* documents, size_t documents_length,
                                        const char* library, size_t library_length, const char* defaults,
                                        size_t defaults_length);
/* A JSON object with the keys of the remote configuration (docs/formats.md). zr_start checks keys and values. */
ZR_API zr_status zr_options_set_remote_configuration(zr_options* options, const char* json, size_t length);
/* Counts only at the first start on this device. 0 (default): the application was installed with the module. 1: an
 * application without the module was updated to one with it. */
ZR_API zr_status zr_options_set_app_status(zr_options* options, int64_t status);
/* Keeps a journal: an event whose call has returned is not lost by a kill (docs/journal.md). Default: none. bytes: the
 * size of its file, 64 KiB to 256 MiB, a size beyond counts as the nearest; 0 means 1 MiB. sync_seconds: how often it
 * is synced, in case of a power loss; 0 means never. */
ZR_API zr_status zr_options_set_journal(zr_options* options, uint64_t bytes, double sync_seconds);

/* The application's state. */
typedef enum zr_state { ZR_STATE_ACTIVE = 0, ZR_STATE_INACTIVE = 1, ZR_STATE_BACKGROUND = 2 } zr_state;
/* At zr_start; later zr_lifecycle changes it. Default: ZR_STATE_ACTIVE. */
ZR_API zr_status zr_options_set_state(zr_options* options, zr_state state);

/* Log: without one, nothing is logged. */

typedef enum zr_log_kind { ZR_LOG_MESSAGE = 1, ZR_LOG_ERROR = 2 } zr_log_kind;
/* On any thread. file, line and operation say where an error was caught; for a message they are "", 0 and "". All texts
 * end with a NUL and are valid during the call. */
typedef void (*zr_log)(void* data, zr_log_kind kind, const char* message, size_t length, const char* file, int32_t line,
                       const char* operation);
ZR_API zr_status zr_options_set_log(zr_options* options, zr_log log, void* data, zr_release release);
/* Each message as a line of standard error. Replaces zr_options_set_log. */
ZR_API zr_status zr_options_set_log_to_stderr(zr_options* options);

/* Transport: without one, HTTP by libcurl where the library was built with it (zr_has_http), else nothing is sent. */

ZR_API int zr_has_http(void);

/* A request that waits to be sent: POST with a JSON body. */
typedef struct zr_request zr_request;
/* On any thread. The host owns the request. It sends it and calls zr_request_respond once, here or later, on any
 * thread, also after zr_close: that frees the request. At most six connections to a host should be open at a time; keep
 * further requests in order. */
typedef void (*zr_transport)(void* data, zr_request* request);
ZR_API zr_status zr_options_set_transport(zr_options* options, zr_transport send, void* data, zr_release release);

/* Valid until zr_request_respond. length may be NULL. */
ZR_API const char* zr_request_url(const zr_request* request, size_t* length);
/* Headers beside the content type, which the host sets to "application/json; charset=utf-8". NULL beyond the last. */
ZR_API const char* zr_request_header_name(const zr_request* request, size_t index);
ZR_API const char* zr_request_header_value(const zr_request* request, size_t index);
/* Made by the first call: call it just before sending. NULL after an error, for instance when the user opted out
 * meanwhile; then respond with status 0. */
ZR_API const char* zr_request_body(zr_request* request, size_t* length);
/* http_status: 0 if no response came; error then says why, and is else NULL. body may be NULL if its length is 0. Frees
 * the request, also when it returns an error, but not for a NULL request. Allowed in every state. A response that comes
 * after zr_close counts as lost: its batch goes again with the next launch, under the same identifier. */
ZR_API zr_status zr_request_respond(zr_request* request, int32_t http_status, const char* body, size_t body_length,
                                    const char* error);

/* Main loop: without one, the library runs the main queue on a thread of its own. */

typedef struct zr_task zr_task;
/* On any thread. The host calls zr_task_run for the task on its main thread: once, soon, and in the order of posting.
 */
typedef void (*zr_post_task)(void* data, zr_task* task);
/* On any thread. Not 0 if that is the main thread. */
typedef int (*zr_is_main_thread)(void* data);
/* Both are needed. */
ZR_API zr_status zr_options_set_main_loop(zr_options* options, zr_post_task post, zr_is_main_thread is_main_thread,
                                          void* data, zr_release release);
/* Runs and frees the task. ZR_ERROR_THREAD: this is not the main thread; the task was neither run nor freed. After
 * zr_close it only frees. */
ZR_API zr_status zr_task_run(zr_task* task);

/* Background tasks: without them, the library assumes that nobody suspends the process. */

/* On any thread. The module needs time in the background: do not let the system suspend the process before end is
 * called with the same task. Tasks are numbered from 1. name: "ZRVTask", "ZRVDeviceUpdateTask", "bg_zrv_app_exit". */
typedef void (*zr_begin_background_task)(void* data, uint64_t task, const char* name);
/* On any thread; at most once for each task that began, and not after zr_close. Of two tasks of one name that overlap,
 * the earlier may end only when it expires (zr_background_task_expired). */
typedef void (*zr_end_background_task)(void* data, uint64_t task);
ZR_API zr_status zr_options_set_background_tasks(zr_options* options, zr_begin_background_task begin,
                                                 zr_end_background_task end, void* data, zr_release release);

/* Answers of the host. */

typedef struct zr_text zr_text;
/* In a callback that gets a zr_text: sets the answer. A callback that does not call it answers "unknown". */
ZR_API zr_status zr_text_set(zr_text* answer, const char* text, size_t length);

typedef enum zr_locale_question {
  /* "en_US", "zh_Hans_CN". */
  ZR_LOCALE_IDENTIFIER = 0,
  /* "US". */
  ZR_LOCALE_COUNTRY_CODE = 1,
  /* "en". */
  ZR_LOCALE_LANGUAGE_CODE = 2,
  /* Names in the locale's own language; the argument is a country code, a language code, an identifier. */
  ZR_LOCALE_COUNTRY_NAME = 3,
  ZR_LOCALE_LANGUAGE_NAME = 4,
  ZR_LOCALE_IDENTIFIER_NAME = 5
} zr_locale_question;
/* On any thread. The argument is "" for the first three questions. */
typedef void (*zr_locale)(void* data, zr_locale_question question, const char* argument, zr_text* answer);
/* Default: LC_ALL, LC_MESSAGES or LANG; no names. */
ZR_API zr_status zr_options_set_locale(zr_options* options, zr_locale locale, void* data, zr_release release);

/* On any thread. The offset from UTC at that moment, in seconds, including daylight saving. */
typedef int64_t (*zr_time_zone)(void* data, double seconds_since_1970);
/* Default: TZ, else the machine's. */
ZR_API zr_status zr_options_set_time_zone(zr_options* options, zr_time_zone zone, void* data, zr_release release);

typedef enum zr_advertising_permission {
  /* This device has no advertising identifiers. */
  ZR_ADVERTISING_UNAVAILABLE = 0,
  /* The user was asked and has not agreed. */
  ZR_ADVERTISING_DENIED = 1,
  /* The user is not asked on this platform, and has limited ad tracking. */
  ZR_ADVERTISING_LIMITED = 2,
  ZR_ADVERTISING_ALLOWED = 3
} zr_advertising_permission;
/* On any thread. Sets the identifier if it is allowed. */
typedef zr_advertising_permission (*zr_advertising)(void* data, zr_text* identifier);
/* Default: ZR_ADVERTISING_UNAVAILABLE. */
ZR_API zr_status zr_options_set_advertising(zr_options* options, zr_advertising advertising, void* data,
                                            zr_release release);

/* ---- Start and end */

/* Starts the module with a copy of the options; the caller frees them. Call it once per process. In this order, on the
 * main thread: the module is initialised, which begins or continues the session and sends what earlier launches left; a
 * new SDK version is stored; an installation or update is tracked; a device that the service has not accepted yet is
 * registered; the locale is tracked; if the application is active, the session's start is tracked. With a main loop of
 * the host, call it on the main thread; elsewhere it waits until that loop runs.
 *
 * ZR_ERROR_STARTED, ZR_ERROR_CLOSED: a second start. After ZR_ERROR_CONFIGURATION nothing has started: the options may
 * be corrected and zr_start called again. ZR_ERROR_SYSTEM: no memory or no threads; a second start may fail, too. */
ZR_API zr_status zr_start(const zr_options* options);

/* Ends the module. If the application is active, session end and exit are tracked. What is recorded is saved and sent;
 * waits for the answers, and for callbacks that are running, at most that many seconds (a disk that hangs may exceed
 * them). Not a number, or negative: ZR_ERROR_ARGUMENT. all_sent may be NULL; it becomes 1 if the service has accepted
 * every event and the device's registration, else 0. What it has not accepted is saved and goes with the next launch.
 *
 * After it has returned, no callback begins and none is running; all are released. ZR_ERROR_TIMEOUT: a callback was
 * still running when the time was over; only that one may still be running, and its release follows it. The module is
 * closed then, too. Completions that were not called by then are only released. The library's threads end, each after
 * its current task.
 *
 * Any thread, but ZR_ERROR_CALLBACK in a callback. With a main loop of the host on the main thread, or while that loop
 * runs. On the main thread it runs the tasks itself. */
ZR_API zr_status zr_close(double seconds, int* all_sent);

/* ---- Lifecycle of the application */

typedef enum zr_lifecycle_event {
  ZR_DID_BECOME_ACTIVE = 1,
  ZR_WILL_RESIGN_ACTIVE = 2,
  ZR_WILL_ENTER_FOREGROUND = 3,
  ZR_DID_ENTER_BACKGROUND = 4,
  ZR_WILL_TERMINATE = 5
} zr_lifecycle_event;

/* These may be called on any thread. They work on the main thread: before they return if called there, else later, in
 * the order of the calls. A program without a lifecycle calls none: it is active from zr_start to zr_close. */

/* Changes the state to active, inactive, inactive, background, or not at all, and tells the module. */
ZR_API zr_status zr_lifecycle(zr_lifecycle_event event);
/* ZR_WILL_ENTER_FOREGROUND and ZR_DID_BECOME_ACTIVE. */
ZR_API zr_status zr_enter_foreground(void);
/* ZR_WILL_RESIGN_ACTIVE and ZR_DID_ENTER_BACKGROUND. */
ZR_API zr_status zr_enter_background(void);
/* The time of a background task is nearly up. Ends the task, and the last one of its name. An unknown or ended task is
 * ignored. */
ZR_API zr_status zr_background_task_expired(uint64_t task);

/* ---- Events */

/* One attribute of zr_track_attributes. Set unused members to 0. */
typedef struct zr_attribute {
  const char* name;
  size_t name_length;
  /* A zr_kind. */
  int32_t kind;
  int32_t reserved;
  /* BOOL, INTEGER. */
  int64_t integer;
  /* DOUBLE; DATE: seconds since 1970; LOCATION: latitude. */
  double number;
  /* LOCATION. */
  double longitude;
  /* STRING, URL, BYTES, JSON. */
  const char* text;
  size_t text_length;
  /* LIST, MAP. */
  const zr_value* value;
} zr_attribute;

/* Records the event and returns; no I/O, no wait. properties may be NULL. The handle may be used again and changed
 * afterwards; this event keeps what it held. Events of one thread are recorded in the order of the calls. */
ZR_API zr_status zr_track(const char* name, size_t name_length, const zr_properties* properties);
/* The same without a handle, but of attributes with one name only the last counts, of dates and locations, too.
 * attribute_size is sizeof(zr_attribute). If one attribute is wrong, the event is not tracked. attributes may be NULL
 * if count is 0. */
ZR_API zr_status zr_track_attributes(const char* name, size_t name_length, const zr_attribute* attributes, size_t count,
                                     size_t attribute_size);
/* The same with a JSON object. */
ZR_API zr_status zr_track_json(const char* name, size_t name_length, const char* json, size_t length);
/* The same with what the builder holds now. NULL: no attributes. */
ZR_API zr_status zr_track_builder(const char* name, size_t name_length, const zr_builder* builder);

/* Saves the events recorded so far and sends all saved batches. An event tracked just before may not be recorded yet;
 * it goes with the next flush. The completion may be NULL. It tells whether the service accepted everything or nothing
 * was left to send; while another flush runs it is called at once with 0. It runs on a thread of the library, and is
 * not called if the account is inactive. */
ZR_API zr_status zr_flush(zr_completion completion, void* data, zr_release release);
/* Stops the flush timer; kept over restarts. Waits for the main thread. */
ZR_API zr_status zr_disable_periodic_flush(void);
/* Seconds; ignored unless above the remote minimum. Kept over restarts. */
ZR_API zr_status zr_set_flush_interval(int64_t seconds);

/* ---- The user
 *
 * Attributes are sent if they changed. Two attributes of one thread may be sent in either order. */

/* A string, boolean, integer or double; other kinds are ZR_ERROR_ARGUMENT. The key "USER_ATTRIBUTE_UNIQUE_ID" is a
 * login, as zr_login. */
ZR_API zr_status zr_set_user_attribute(const char* key, size_t key_length, const zr_value* value);
ZR_API zr_status zr_set_user_attribute_string(const char* key, size_t key_length, const char* text, size_t length);
ZR_API zr_status zr_set_user_attribute_bool(const char* key, size_t key_length, int boolean);
ZR_API zr_status zr_set_user_attribute_integer(const char* key, size_t key_length, int64_t integer);
ZR_API zr_status zr_set_user_attribute_double(const char* key, size_t key_length, double number);
/* Dates and locations are sent at each call. */
ZR_API zr_status zr_set_user_attribute_date(const char* key, size_t key_length, double seconds_since_1970);
/* As zr_properties_add_iso_date. */
ZR_API zr_status zr_set_user_attribute_iso_date(const char* key, size_t key_length, const char* text, size_t length);
ZR_API zr_status zr_set_user_attribute_location(const char* key, size_t key_length, double latitude, double longitude);
/* Logs a user in under the trimmed text; empty text is a user of its own. If another one is logged in, that one is
 * logged out first, as by zr_reset_user. */
ZR_API zr_status zr_login(const char* unique_id, size_t length);
/* Renames the current user without a logout. Writes a file. */
ZR_API zr_status zr_set_alias(const char* unique_id, size_t length);
/* The attribute "USER_PUSH_PREFERENCE". */
ZR_API zr_status zr_set_push_preference(int wanted);
/* Logs this user out and begins the next: logout event, flush, a new session, a new registration of the device. The
 * completion may be NULL. It tells whether requests were made and all were accepted. While another flush runs it is
 * called at once with 0, and again when that flush ends. It runs on a thread of the library, and is not called if the
 * account is inactive or the logout event is not accepted. */
ZR_API zr_status zr_reset_user(zr_completion completion, void* data, zr_release release);
/* Observer's part of the above, for a host that begins a new user itself. */
ZR_API zr_status zr_init_new_user(void);

/* ---- Consent; kept over restarts */

/* Opting out deletes stored events and cached attributes and stops all events but the excepted ones. */
ZR_API zr_status zr_opt_out_of_data_tracking(int opt_out);
/* The vendor identifier, the advertising identifier: opting out keeps them out of later registrations and attributes.
 * Attributes that were tracked before still go with their batch. */
ZR_API zr_status zr_opt_out_of_idfv_tracking(int opt_out);
ZR_API zr_status zr_opt_out_of_idfa_tracking(int opt_out);
/* A list of strings: events that are tracked even while data tracking is opted out. Not kept over restarts. */
ZR_API zr_status zr_update_opt_out_events(const zr_value* names);
/* A push consent attribute; sent at each call. The key "ZORVANE_PUSH_OPTED_OUT" is sent even while data tracking is
 * opted out. */
ZR_API zr_status zr_set_push_consent(const char* key, size_t key_length, const zr_value* value);
/* Kept over restarts. Disabling deletes stored events, cached attributes and the session, and waits for the main
 * thread. Enabling begins a session. */
ZR_API zr_status zr_set_sdk_enabled(int enabled);

/* ---- Device and installation. zr_start does most of this. */

/* 0: the application was installed, 1: updated. Counts only in the first call ever; zr_start makes it. */
ZR_API zr_status zr_app_status(int64_t status);
/* Tracks the status's event, whatever the version; an installation only once. */
ZR_API zr_status zr_smart_trigger_for_app_status(int64_t status);
ZR_API zr_status zr_track_sdk_version(void);
ZR_API zr_status zr_track_reinstall(void);
/* Registers the device. The completion may be NULL. It tells whether the service accepted; on the transport's thread.
 * It is not called if no request is made. */
ZR_API zr_status zr_update_device(zr_completion completion, void* data, zr_release release);
/* Registers the device anew after a change of the push token. */
ZR_API zr_status zr_push_token_updated(void);
/* Model, name, system version and vendor identifier, of the remote configuration. */
ZR_API zr_status zr_set_device_model_attributes(void);
ZR_API zr_status zr_track_locale(void);
ZR_API zr_status zr_track_advertising_identifier(void);
/* The advertising identifier tracked last; free it with zr_free. NULL if there is none; then zr_last_status tells
 * nothing new. length may be NULL. */
ZR_API char* zr_copy_tracked_idfa(size_t* length);
/* The body of a device registration as JSON; free it with zr_free. length may be NULL. */
ZR_API char* zr_copy_device_registration(size_t* length);

/* ---- Links and traffic sources */

/* A URL opened the application: call it for each. Works on the main thread, as zr_lifecycle. */
ZR_API zr_status zr_open_url(const char* url, size_t length);
/* The part of it that does nothing while the module intercepts opened URLs ("app_delegate_proxy_enabled"). */
ZR_API zr_status zr_process_url(const char* url, size_t length);

typedef struct zr_source zr_source;

/* From the query of a URL; from a push message's map, also of the service's own campaigns; from a map with keys such as
 * "utm_source". NULL after an error. */
ZR_API zr_source* zr_source_from_url(const char* url, size_t length);
ZR_API zr_source* zr_source_from_push(const zr_value* payload);
ZR_API zr_source* zr_source_from_service_push(const zr_value* payload);
ZR_API zr_source* zr_source_from_map(const zr_value* map);
/* Whether it names a source. 0 for NULL. */
ZR_API int zr_source_is_valid(const zr_source* source);
ZR_API void zr_source_free(zr_source* source);
/* Sources of the current visit. They may begin a new session. sources may be NULL if count is 0. */
ZR_API zr_status zr_update_sources(const zr_source* const* sources, size_t count);

/* ---- Conditions and trigger delegates, for other modules of the SDK */

typedef struct zr_condition zr_condition;

/* From the service's JSON object with "eventName", "filters" and "filter_operator". A malformed filter is never
 * satisfied. Immutable: any number of threads may use it. */
ZR_API zr_condition* zr_condition_from_json(const char* json, size_t length);
ZR_API void zr_condition_free(zr_condition* condition);
/* Whether an event satisfies it: 1 or 0. record is a map as a trigger delegate gets it. Between zr_start and zr_close
 * only, because dates are compared by the module's clock. */
ZR_API zr_status zr_condition_check(const zr_condition* condition, const char* name, size_t name_length,
                                    const zr_value* record, int* satisfied);
/* The record that an event with these properties would have now; properties may be NULL. Between zr_start and zr_close
 * only. */
ZR_API zr_value* zr_event_record(const char* name, size_t name_length, const zr_properties* properties);

typedef enum zr_trigger_slot { ZR_TRIGGER_IN_APP = 0, ZR_TRIGGER_MESSAGING = 1 } zr_trigger_slot;
/* After each recorded event, one at a time, on a queue of the library: the in-app delegate first. The record is a map
 * that belongs to the library and is valid during the call. The delegate may change it: the messaging delegate sees
 * that, what is sent stays unchanged. */
typedef void (*zr_trigger)(void* data, const char* name, size_t name_length, zr_value* record);
/* A NULL trigger removes the delegate. A call of the earlier one may still be running on another thread. */
ZR_API zr_status zr_set_trigger(zr_trigger_slot slot, zr_trigger trigger, void* data, zr_release release);

/* ---- The core */

/* Begins or continues the session and sends what earlier sessions left, as at the start. */
ZR_API zr_status zr_update_modules(void);
/* Tracks the session's start; the lifecycle does. */
ZR_API zr_status zr_session_started(void);
/* Switches to another application identifier: flushes, resets the user. The completion may be NULL. It runs on a thread
 * of the library with success 1, and is not called if the account is inactive. */
ZR_API zr_status zr_set_app_id(const char* app_id, size_t length, zr_completion completion, void* data,
                               zr_release release);
/* A JSON object with the keys to change. ZR_ERROR_CONFIGURATION: nothing has changed. */
ZR_API zr_status zr_update_remote_configuration(const char* json, size_t length);
/* The values in effect, as a JSON object; free it with zr_free. length may be NULL. */
ZR_API char* zr_copy_configuration(size_t* length);

#ifdef __cplusplus
}
#endif

#endif
