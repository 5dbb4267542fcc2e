#include "tools/ask/dialog.h"

#include <gtk/gtk.h>

#include <memory>

namespace tervano {

namespace {

constexpr int kMargin = 18;
constexpr int kSpacing = 12;
constexpr int kWidth = 460;
constexpr int kMaximumListHeight = 220;

struct Dialog {
  GMainLoop* loop = nullptr;
  GtkWindow* window = nullptr;
  GtkWidget* cancel = nullptr;
  DialogAnswer answer = DialogAnswer::refusal;
};

std::string validText(const std::string& text) {
  const std::unique_ptr<gchar, decltype(&g_free)> valid(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  return valid.get();
}

GtkWidget* labelOf(const std::string& text, const char* styleClass) {
  GtkWidget* const label = gtk_label_new(validText(text).c_str());
  gtk_label_set_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  if (styleClass != nullptr) gtk_widget_add_css_class(label, styleClass);
  return label;
}

GtkWidget* listOf(const std::vector<std::string>& items) {
  GtkWidget* const list = gtk_list_box_new();
  gtk_list_box_set_selection_mode(GTK_LIST_BOX(list), GTK_SELECTION_NONE);
  gtk_widget_add_css_class(list, "boxed-list");
  for (const auto& item : items) {
    GtkWidget* const label = gtk_label_new(validText(item).c_str());
    gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_MIDDLE);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_widget_set_tooltip_text(label, validText(item).c_str());
    gtk_list_box_append(GTK_LIST_BOX(list), label);
  }
  GtkWidget* const scroller = gtk_scrolled_window_new();
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), list);
  gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scroller), TRUE);
  gtk_scrolled_window_set_max_content_height(GTK_SCROLLED_WINDOW(scroller), kMaximumListHeight);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER,
                                 GTK_POLICY_AUTOMATIC);
  return scroller;
}

void consented(GtkButton* /*button*/, gpointer data) {
  auto* const dialog = static_cast<Dialog*>(data);
  dialog->answer = DialogAnswer::consent;
  gtk_window_close(dialog->window);
}

void refused(GtkButton* /*button*/, gpointer data) {
  gtk_window_close(static_cast<Dialog*>(data)->window);
}

gboolean closing(GtkWindow* /*window*/, gpointer data) {
  g_main_loop_quit(static_cast<Dialog*>(data)->loop);
  return FALSE;
}

gboolean escaped(GtkWidget* widget, GVariant* /*arguments*/, gpointer /*data*/) {
  gtk_window_close(GTK_WINDOW(widget));
  return TRUE;
}

void addEscape(GtkWidget* window) {
  GtkEventController* const controller = gtk_shortcut_controller_new();
  gtk_shortcut_controller_add_shortcut(
      GTK_SHORTCUT_CONTROLLER(controller),
      gtk_shortcut_new(gtk_keyval_trigger_new(GDK_KEY_Escape, static_cast<GdkModifierType>(0)),
                       gtk_callback_action_new(escaped, nullptr, nullptr)));
  gtk_widget_add_controller(window, controller);
}

GtkWidget* buttonsOf(const DialogQuestion& question, Dialog& dialog) {
  GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kSpacing);
  gtk_widget_set_halign(row, GTK_ALIGN_END);
  GtkWidget* const cancel = gtk_button_new_with_label("Cancel");
  GtkWidget* const consent = gtk_button_new_with_label(validText(question.consent).c_str());
  gtk_widget_add_css_class(consent, "destructive-action");
  g_signal_connect(cancel, "clicked", G_CALLBACK(refused), &dialog);
  g_signal_connect(consent, "clicked", G_CALLBACK(consented), &dialog);
  gtk_box_append(GTK_BOX(row), cancel);
  gtk_box_append(GTK_BOX(row), consent);
  dialog.cancel = cancel;
  return row;
}

}  // namespace

DialogAnswer askInWindow(const DialogQuestion& question) {
  if (gtk_init_check() == FALSE) return DialogAnswer::noDisplay;
  Dialog dialog;
  dialog.loop = g_main_loop_new(nullptr, FALSE);
  GtkWidget* const window = gtk_window_new();
  dialog.window = GTK_WINDOW(window);
  gtk_window_set_title(dialog.window, "Tervano");
  gtk_window_set_icon_name(dialog.window, "tervano");
  gtk_window_set_default_size(dialog.window, kWidth, -1);
  gtk_window_set_resizable(dialog.window, FALSE);
  addEscape(window);
  g_signal_connect(window, "close-request", G_CALLBACK(closing), &dialog);

  GtkWidget* const column = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing);
  gtk_widget_set_margin_top(column, kMargin);
  gtk_widget_set_margin_bottom(column, kMargin);
  gtk_widget_set_margin_start(column, kMargin);
  gtk_widget_set_margin_end(column, kMargin);
  gtk_widget_set_size_request(column, kWidth, -1);
  gtk_box_append(GTK_BOX(column), labelOf(question.text, "title-4"));
  if (!question.detail.empty()) gtk_box_append(GTK_BOX(column), labelOf(question.detail, nullptr));
  if (!question.items.empty()) gtk_box_append(GTK_BOX(column), listOf(question.items));
  gtk_window_set_child(dialog.window, column);
  gtk_box_append(GTK_BOX(column), buttonsOf(question, dialog));
  gtk_window_set_default_widget(dialog.window, dialog.cancel);
  gtk_window_set_focus(dialog.window, dialog.cancel);

  gtk_window_present(dialog.window);
  g_main_loop_run(dialog.loop);
  g_main_loop_unref(dialog.loop);
  return dialog.answer;
}

}  // namespace tervano
