#include "tools/ask/dialog.h"

#include <gtk/gtk.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "translation/translation.h"

namespace tervano {

namespace {

constexpr int kMargin = 18;
constexpr int kSpacing = 12;
constexpr int kWidth = 460;
constexpr int kMaximumListHeight = 220;

// As long as the reader of the password takes it.
constexpr std::size_t kLongestPassword = 1023;

struct Dialog {
  GMainLoop* loop = nullptr;
  GtkWindow* window = nullptr;
  GtkWidget* cancel = nullptr;
  GtkWidget* consent = nullptr;
  DialogAnswer answer = DialogAnswer::refusal;
  // Of a password: where it goes, its two fields and what is wrong with them.
  int passwordDescriptor = -1;
  GtkWidget* password = nullptr;
  GtkWidget* again = nullptr;
  GtkWidget* complaint = nullptr;
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

// The text of a field, in the field's own memory.
const char* textOf(GtkWidget* field) {
  return gtk_editable_get_text(GTK_EDITABLE(field));
}

bool writePassword(const Dialog& dialog) {
  const char* text = textOf(dialog.password);
  std::size_t left = std::strlen(text);
  while (left > 0) {
    const ssize_t written = write(dialog.passwordDescriptor, text, left);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text += written;
    left -= static_cast<std::size_t>(written);
  }
  return true;
}

void consented(GtkButton* /*button*/, gpointer data) {
  auto* const dialog = static_cast<Dialog*>(data);
  if (dialog->password == nullptr || writePassword(*dialog)) {
    dialog->answer = DialogAnswer::consent;
  }
  gtk_window_close(dialog->window);
}

void passwordChanged(GtkEditable* /*field*/, gpointer data) {
  auto* const dialog = static_cast<Dialog*>(data);
  const char* const password = textOf(dialog->password);
  const char* const again = textOf(dialog->again);
  const bool isSame = std::strcmp(password, again) == 0;
  const bool isTooLong = std::strlen(password) > kLongestPassword;
  std::string complaint;
  if (isTooLong) {
    complaint = tr("The password is too long.");
  } else if (*again != '\0' && !isSame) {
    complaint = tr("The passwords are not the same.");
  }
  gtk_label_set_text(GTK_LABEL(dialog->complaint), complaint.c_str());
  gtk_widget_set_sensitive(dialog->consent, *password != '\0' && isSame && !isTooLong);
}

GtkWidget* passwordField(const std::string& purpose) {
  GtkWidget* const field = gtk_password_entry_new();
  g_object_set(field, "placeholder-text", purpose.c_str(), "activates-default", TRUE, nullptr);
  gtk_accessible_update_property(GTK_ACCESSIBLE(field), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 purpose.c_str(), -1);
  return field;
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
  GtkWidget* const cancel = gtk_button_new_with_label(tr("Cancel").shown().c_str());
  GtkWidget* const consent = gtk_button_new_with_label(validText(question.consent).c_str());
  gtk_widget_add_css_class(
      consent, question.passwordDescriptor >= 0 ? "suggested-action" : "destructive-action");
  g_signal_connect(cancel, "clicked", G_CALLBACK(refused), &dialog);
  g_signal_connect(consent, "clicked", G_CALLBACK(consented), &dialog);
  gtk_box_append(GTK_BOX(row), cancel);
  gtk_box_append(GTK_BOX(row), consent);
  dialog.cancel = cancel;
  dialog.consent = consent;
  return row;
}

// Below the items: the two fields and room for what is wrong with them.
void addPasswordFields(GtkBox* column, Dialog& dialog) {
  dialog.password = passwordField(tr("Password"));
  gtk_password_entry_set_show_peek_icon(GTK_PASSWORD_ENTRY(dialog.password), TRUE);
  dialog.again = passwordField(tr("The same password again"));
  dialog.complaint = labelOf("", "error");
  for (GtkWidget* const field : {dialog.password, dialog.again}) {
    gtk_box_append(column, field);
    g_signal_connect(field, "changed", G_CALLBACK(passwordChanged), &dialog);
  }
  gtk_box_append(column, dialog.complaint);
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
  if (question.passwordDescriptor >= 0) {
    dialog.passwordDescriptor = question.passwordDescriptor;
    addPasswordFields(GTK_BOX(column), dialog);
  }
  gtk_window_set_child(dialog.window, column);
  gtk_box_append(GTK_BOX(column), buttonsOf(question, dialog));
  const bool asksPassword = dialog.password != nullptr;
  if (asksPassword) gtk_widget_set_sensitive(dialog.consent, FALSE);
  gtk_window_set_default_widget(dialog.window, asksPassword ? dialog.consent : dialog.cancel);
  gtk_window_set_focus(dialog.window, asksPassword ? dialog.password : dialog.cancel);

  gtk_window_present(dialog.window);
  // From here on there may be a password in memory. Not before: while the toolkit starts, services
  // of the desktop look who asks them.
  if (asksPassword) prctl(PR_SET_DUMPABLE, 0);
  g_main_loop_run(dialog.loop);
  g_main_loop_unref(dialog.loop);
  return dialog.answer;
}

}  // namespace tervano
