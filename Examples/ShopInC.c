/* An application in C99: a shop that counts the messages which an in-app module would show.
 *
 * ShopInC ENDPOINT FOLDER
 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zranalytics.h>

/* What an in-app messaging module keeps. Its trigger runs on one queue; main reads the number after zr_close. */
typedef struct in_app {
  zr_condition* big_order;
  int messages;
} in_app;

static void on_event(void* data, const char* name, size_t name_length, zr_value* record) {
  in_app* module = data;
  int satisfied = 0;
  if (zr_condition_check(module->big_order, name, name_length, record, &satisfied) == ZR_OK && satisfied) {
    ++module->messages;
  }
}

static void must(zr_status status) {
  if (status == ZR_OK) return;
  fprintf(stderr, "error %d: %s\n", (int)status, zr_last_error());
  exit(1);
}

static void start(const char* endpoint, const char* folder) {
  zr_options* options = zr_options_new();
  must(zr_options_set_endpoint(options, endpoint, ZR_NUL));
  must(zr_options_set_app_id(options, "SHOP", ZR_NUL));
  must(zr_options_set_folder(options, folder, ZR_NUL));
  must(zr_start(options));
  zr_options_free(options);
}

/* A handle is convenient when attributes come one by one, or when several events share them. */
static void track_order(const char* const* products, size_t count) {
  zr_properties* order = zr_properties_new();
  zr_value* list = zr_value_list();
  for (size_t i = 0; i < count; ++i) {
    zr_value* product = zr_value_string(products[i], ZR_NUL);
    must(zr_value_append(list, product));
    zr_value_free(product);
  }
  must(zr_properties_add(order, "products", ZR_NUL, list));
  must(zr_properties_add_double(order, "total", ZR_NUL, 129.5));
  must(zr_properties_add_iso_date(order, "delivery", ZR_NUL, "2026-12-24T10:00:00Z", ZR_NUL));
  must(zr_properties_add_location(order, "store", ZR_NUL, 48.137154, 11.576124));
  must(zr_track("Order placed", ZR_NUL, order));
  zr_value_free(list);
  zr_properties_free(order);
}

/* The fastest way: nothing is allocated here. */
static void track_view(const char* product, int64_t position) {
  zr_attribute attributes[2];
  memset(attributes, 0, sizeof attributes);
  attributes[0].name = "product";
  attributes[0].name_length = ZR_NUL;
  attributes[0].kind = ZR_KIND_STRING;
  attributes[0].text = product;
  attributes[0].text_length = ZR_NUL;
  attributes[1].name = "position";
  attributes[1].name_length = ZR_NUL;
  attributes[1].kind = ZR_KIND_INTEGER;
  attributes[1].integer = position;
  must(zr_track_attributes("Product viewed", ZR_NUL, attributes, 2, sizeof attributes[0]));
}

int main(int argc, char** argv) {
  static const char* const products[] = {"Trail shoe", "Socks"};
  static in_app module;
  int all_sent = 0;
  if (argc != 3) return 1;

  module.big_order = zr_condition_from_json(
      "{\"eventName\": \"Order placed\", \"filters\": [{\"name\": \"total\", \"data_type\": \"double\","
      " \"operator\": \"greaterThan\", \"value\": 100}]}",
      ZR_NUL);
  start(argv[1], argv[2]);
  must(zr_set_trigger(ZR_TRIGGER_IN_APP, on_event, &module, NULL));

  must(zr_login("anna", ZR_NUL));
  must(zr_open_url("shop://product/7?utm_source=mail&utm_campaign=winter", ZR_NUL));
  track_view("Trail shoe", 1);
  track_view("Socks", 2);
  track_order(products, 2);
  must(zr_track_json("Rated", ZR_NUL, "{\"stars\": 5, \"tags\": [\"fast\", \"light\"]}", ZR_NUL));
  must(zr_enter_background());
  must(zr_enter_foreground());

  must(zr_close(10, &all_sent));
  zr_condition_free(module.big_order);
  printf("all sent: %s, messages: %d\n", all_sent ? "yes" : "no", module.messages);
  return all_sent ? 0 : 2;
}
