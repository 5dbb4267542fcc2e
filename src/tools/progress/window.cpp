#include "tools/progress/window.h"

#include <gtk/gtk.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "tools/progress/progress_line.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr int kMargin = 18;
constexpr int kSpacing = 6;
constexpr int kRowSpacing = 18;
constexpr int kWidth = 440;
constexpr int kMaximumHeight = 420;
constexpr unsigned kPulseMilliseconds = 100;
constexpr std::size_t kReadBytes = 4096;

struct ProgressRow {
  GtkWidget* box = nullptr;
  GtkWidget* title = nullptr;
  GtkWidget* bar = nullptr;
  GtkWidget* cancel = nullptr;
  GtkWidget* text = nullptr;
  bool isPulsing = false;
};

struct ProgressWindowState {
  GMainLoop* loop = nullptr;
  GtkWindow* window = nullptr;
  GtkWidget* list = nullptr;
  int input = -1;
  LineCutter cutter;
  std::map<std::uint64_t, ProgressRow> rows;
};

std::string validProgressText(const std::string& text) {
  const std::unique_ptr<gchar, decltype(&g_free)> valid(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  return valid.get();
}

void cancelPressed(GtkButton* button, gpointer number) {
  // Once: what follows takes a moment.
  gtk_widget_set_sensitive(GTK_WIDGET(button), FALSE);
  std::printf("cancel %" PRIu64 "\n", static_cast<std::uint64_t>(GPOINTER_TO_SIZE(number)));
  std::fflush(stdout);
}

GtkWidget* progressLabel(const char* styleClass) {
  GtkWidget* const label = gtk_label_new("");
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_widget_add_css_class(label, styleClass);
  return label;
}

ProgressRow makeRow(std::uint64_t number) {
  ProgressRow row;
  row.box = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing);
  row.title = progressLabel("heading");
  row.text = progressLabel("dim-label");
  row.bar = gtk_progress_bar_new();
  gtk_widget_set_hexpand(row.bar, TRUE);
  gtk_widget_set_valign(row.bar, GTK_ALIGN_CENTER);
  row.cancel = gtk_button_new_with_label(tr("Cancel").shown().c_str());
  g_signal_connect(row.cancel, "clicked", G_CALLBACK(cancelPressed),
                   GSIZE_TO_POINTER(static_cast<gsize>(number)));
  GtkWidget* const line = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 2 * kSpacing);
  gtk_box_append(GTK_BOX(line), row.bar);
  gtk_box_append(GTK_BOX(line), row.cancel);
  gtk_box_append(GTK_BOX(row.box), row.title);
  gtk_box_append(GTK_BOX(row.box), line);
  gtk_box_append(GTK_BOX(row.box), row.text);
  return row;
}

void takeLine(ProgressWindowState& state, const ProgressLine& line) {
  const auto found = state.rows.find(line.number);
  if (line.hides) {
    if (found == state.rows.end()) return;
    gtk_box_remove(GTK_BOX(state.list), found->second.box);
    state.rows.erase(found);
    if (state.rows.empty()) gtk_widget_set_visible(GTK_WIDGET(state.window), FALSE);
    return;
  }
  if (found == state.rows.end()) {
    const ProgressRow row = makeRow(line.number);
    gtk_box_append(GTK_BOX(state.list), row.box);
    state.rows[line.number] = row;
  }
  ProgressRow& row = state.rows[line.number];
  const std::string title = validProgressText(line.title);
  const std::string text = validProgressText(line.text);
  gtk_label_set_text(GTK_LABEL(row.title), title.c_str());
  gtk_label_set_text(GTK_LABEL(row.text), text.c_str());
  gtk_widget_set_tooltip_text(row.title, title.c_str());
  gtk_widget_set_tooltip_text(row.text, text.c_str());
  const std::string purpose = tr("Cancel {1}", title);
  gtk_accessible_update_property(GTK_ACCESSIBLE(row.cancel), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 purpose.c_str(), -1);
  gtk_accessible_update_property(GTK_ACCESSIBLE(row.bar), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 title.c_str(), -1);
  row.isPulsing = !line.fraction;
  if (line.fraction) gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(row.bar), *line.fraction);
  if (gtk_widget_get_visible(GTK_WIDGET(state.window)) == FALSE) {
    gtk_widget_set_visible(GTK_WIDGET(state.window), TRUE);
  }
}

gboolean inputIsReady(GIOChannel* /*channel*/, GIOCondition /*condition*/, gpointer data) {
  auto* const state = static_cast<ProgressWindowState*>(data);
  char bytes[kReadBytes];
  const ssize_t count = read(state->input, bytes, sizeof bytes);
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return G_SOURCE_CONTINUE;
  if (count <= 0) {
    g_main_loop_quit(state->loop);
    return G_SOURCE_REMOVE;
  }
  for (const auto& text : state->cutter.add(bytes, static_cast<std::size_t>(count))) {
    if (const auto line = parseProgressLine(text)) takeLine(*state, *line);
  }
  return G_SOURCE_CONTINUE;
}

gboolean pulse(gpointer data) {
  for (auto& [number, row] : static_cast<ProgressWindowState*>(data)->rows) {
    if (row.isPulsing) gtk_progress_bar_pulse(GTK_PROGRESS_BAR(row.bar));
  }
  return G_SOURCE_CONTINUE;
}

gboolean progressWindowClosing(GtkWindow* /*window*/, gpointer data) {
  g_main_loop_quit(static_cast<ProgressWindowState*>(data)->loop);
  return FALSE;
}

gboolean escapePressed(GtkWidget* widget, GVariant* /*arguments*/, gpointer /*data*/) {
  gtk_window_close(GTK_WINDOW(widget));
  return TRUE;
}

void closeByEscape(GtkWidget* window) {
  GtkEventController* const controller = gtk_shortcut_controller_new();
  gtk_shortcut_controller_add_shortcut(
      GTK_SHORTCUT_CONTROLLER(controller),
      gtk_shortcut_new(gtk_keyval_trigger_new(GDK_KEY_Escape, static_cast<GdkModifierType>(0)),
                       gtk_callback_action_new(escapePressed, nullptr, nullptr)));
  gtk_widget_add_controller(window, controller);
}

}  // namespace

WindowEnd showProgressWindow(int input) {
  if (gtk_init_check() == FALSE) return WindowEnd::noDisplay;
  ProgressWindowState state;
  state.input = input;
  state.loop = g_main_loop_new(nullptr, FALSE);
  state.window = GTK_WINDOW(gtk_window_new());
  gtk_window_set_title(state.window, "Tervano");
  gtk_window_set_icon_name(state.window, "tervano");
  gtk_window_set_resizable(state.window, FALSE);
  closeByEscape(GTK_WIDGET(state.window));
  g_signal_connect(state.window, "close-request", G_CALLBACK(progressWindowClosing), &state);

  state.list = gtk_box_new(GTK_ORIENTATION_VERTICAL, kRowSpacing);
  gtk_widget_set_margin_top(state.list, kMargin);
  gtk_widget_set_margin_bottom(state.list, kMargin);
  gtk_widget_set_margin_start(state.list, kMargin);
  gtk_widget_set_margin_end(state.list, kMargin);
  gtk_widget_set_size_request(state.list, kWidth, -1);
  GtkWidget* const scroller = gtk_scrolled_window_new();
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), state.list);
  gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scroller), TRUE);
  gtk_scrolled_window_set_max_content_height(GTK_SCROLLED_WINDOW(scroller), kMaximumHeight);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER,
                                 GTK_POLICY_AUTOMATIC);
  gtk_window_set_child(state.window, scroller);

  GIOChannel* const channel = g_io_channel_unix_new(input);
  g_io_add_watch(channel, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), inputIsReady,
                 &state);
  g_io_channel_unref(channel);
  g_timeout_add(kPulseMilliseconds, pulse, &state);
  g_main_loop_run(state.loop);
  g_main_loop_unref(state.loop);
  return WindowEnd::closed;
}

}  // namespace tervano
