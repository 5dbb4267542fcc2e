#include "tools/selection/selection_session.h"

#include <gtk/gtk.h>

#include <memory>
#include <thread>
#include <utility>

#ifdef GDK_WINDOWING_WAYLAND
#include <gdk/wayland/gdkwayland.h>
#endif
#ifdef GDK_WINDOWING_X11
#include <gdk/x11/gdkx.h>
#endif

#include "tools/selection/file_list.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr int kWidth = 420;
constexpr int kHeight = 460;
constexpr int kMargin = 12;
constexpr int kSpacing = 8;
// How long a desktop takes to tell what is on an empty clipboard: nothing.
constexpr guint kEmptyMilliseconds = 1000;
constexpr gsize kLargestChunk = 65'536;
constexpr gsize kLargestContent = gsize{16} << 20;

template <typename T>
using Owned = std::unique_ptr<T, decltype(&g_object_unref)>;
using OwnedText = std::unique_ptr<gchar, decltype(&g_free)>;

std::string shown(const std::string& text) {
  const OwnedText valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  return valid.get();
}

std::string folded(const std::string& text) {
  const OwnedText result(g_utf8_casefold(text.c_str(), -1), g_free);
  return result.get();
}

// Never destroyed.
class Session {
 public:
  explicit Session(SessionRequest request) : request_(std::move(request)) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  SelectionAnswer run() {
    if (gtk_init_check() == FALSE) return answer_;
    loop_ = g_main_loop_new(nullptr, FALSE);
    display_ = gdk_display_get_default();
    clipboard_ = request_.isPrimary ? gdk_display_get_primary_clipboard(display_)
                                    : gdk_display_get_clipboard(display_);
    g_timeout_add(static_cast<guint>(request_.timeoutMilliseconds), timeIsUp, this);
    g_signal_connect(clipboard_, "changed", G_CALLBACK(clipboardChanged), this);
    const bool needsFocus = isWayland();
    if (request_.chooses || needsFocus) openWindow();
    if (!needsFocus) waitForContent();
    lookAtClipboard();
    if (!hasEnded_) g_main_loop_run(loop_);
    return std::move(answer_);
  }

 private:
  bool isWayland() const {
#ifdef GDK_WINDOWING_WAYLAND
    return GDK_IS_WAYLAND_DISPLAY(display_);
#else
    return false;
#endif
  }

  void end(SelectionOutcome outcome) {
    if (std::exchange(hasEnded_, true)) return;
    answer_.outcome = outcome;
    g_cancellable_cancel(cancellable_);
    if (outcome == SelectionOutcome::done && window_ != nullptr) passFocusOn();
    if (window_ != nullptr) gtk_window_destroy(std::exchange(window_, nullptr));
    g_main_loop_quit(loop_);
  }

  // While our window is in front, what comes next may come to the front too.
  void passFocusOn() {
#ifdef GDK_WINDOWING_X11
    if (GDK_IS_X11_DISPLAY(display_)) {
      // What the Startup Notification Protocol has at the end of an identifier.
      const guint32 time = gdk_x11_display_get_user_time(display_);
      if (time != 0) answer_.startupIdentifier = "tervano_TIME" + std::to_string(time);
      return;
    }
#endif
    const Owned<GdkAppLaunchContext> context(gdk_display_get_app_launch_context(display_),
                                             g_object_unref);
    const Owned<GAppInfo> application(
        g_app_info_create_from_commandline("tervano", "Tervano", G_APP_INFO_CREATE_NONE, nullptr),
        g_object_unref);
    const OwnedText token(g_app_launch_context_get_startup_notify_id(
                              G_APP_LAUNCH_CONTEXT(context.get()), application.get(), nullptr),
                          g_free);
    if (token != nullptr) answer_.activationToken = token.get();
  }

  // The clipboard.

  static gboolean timeIsUp(gpointer data) {
    auto* const self = static_cast<Session*>(data);
    if (!self->hasRead_) self->end(SelectionOutcome::timedOut);
    return G_SOURCE_REMOVE;
  }

  static gboolean nothingCame(gpointer data) {
    auto* const self = static_cast<Session*>(data);
    if (!self->isReading_ && !self->hasRead_) self->end(SelectionOutcome::noFiles);
    return G_SOURCE_REMOVE;
  }

  void waitForContent() {
    g_timeout_add(kEmptyMilliseconds, nothingCame, this);
  }

  static void clipboardChanged(GdkClipboard* /*clipboard*/, gpointer data) {
    static_cast<Session*>(data)->lookAtClipboard();
  }

  void lookAtClipboard() {
    if (isReading_ || hasRead_) return;
    GdkContentFormats* const formats = gdk_clipboard_get_formats(clipboard_);
    gsize count = 0;
    gdk_content_formats_get_mime_types(formats, &count);
    if (count == 0) return;
    for (const char* type : kFileListTypes) {
      if (gdk_content_formats_contain_mime_type(formats, type) != FALSE) types_.push_back(type);
    }
    isReading_ = true;
    readNextType();
  }

  // What is offered in several kinds may name files in one of them only.
  void readNextType() {
    if (types_.empty()) return end(SelectionOutcome::noFiles);
    type_ = types_.front();
    types_.erase(types_.begin());
    content_.clear();
    const char* wanted[] = {type_, nullptr};
    gdk_clipboard_read_async(clipboard_, wanted, G_PRIORITY_DEFAULT, cancellable_, didOpen, this);
  }

  static bool isCancelled(GError* error) {
    const bool cancelled = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
    g_clear_error(&error);
    return cancelled;
  }

  static void didOpen(GObject* source, GAsyncResult* result, gpointer data) {
    GError* error = nullptr;
    GInputStream* const stream =
        gdk_clipboard_read_finish(GDK_CLIPBOARD(source), result, nullptr, &error);
    // After the end there may be no session any more.
    if (stream == nullptr && isCancelled(error)) return;
    auto* const self = static_cast<Session*>(data);
    if (stream == nullptr) return self->readNextType();
    self->readMore(stream);
  }

  void readMore(GInputStream* stream) {
    g_input_stream_read_bytes_async(stream, kLargestChunk, G_PRIORITY_DEFAULT, cancellable_,
                                    didRead, this);
  }

  static void didRead(GObject* source, GAsyncResult* result, gpointer data) {
    GInputStream* const stream = G_INPUT_STREAM(source);
    GError* error = nullptr;
    GBytes* const bytes = g_input_stream_read_bytes_finish(stream, result, &error);
    if (bytes == nullptr && isCancelled(error)) {
      g_object_unref(stream);
      return;
    }
    auto* const self = static_cast<Session*>(data);
    gsize size = 0;
    const auto* const text =
        bytes == nullptr ? nullptr : static_cast<const char*>(g_bytes_get_data(bytes, &size));
    if (size > 0) self->content_.append(text, size);
    if (bytes != nullptr) g_bytes_unref(bytes);
    if (size > 0 && self->content_.size() <= kLargestContent) return self->readMore(stream);
    g_object_unref(stream);
    // Neither a part of a list nor one that is too long is taken.
    const bool isWhole = bytes != nullptr && size == 0;
    self->didReadContent(isWhole ? filesOfContent(self->type_, self->content_)
                                 : std::vector<std::string>());
  }

  void didReadContent(const std::vector<std::string>& files) {
    if (files.empty()) return readNextType();
    hasRead_ = true;
    request_.didRead(files);
    if (!request_.chooses) return end(SelectionOutcome::done);
    // The user may close the window before they come.
    std::thread([this] {
      choices_ = request_.choices();
      g_idle_add(haveChoices, this);
    }).detach();
  }

  static gboolean haveChoices(gpointer data) {
    auto* const self = static_cast<Session*>(data);
    if (!self->hasEnded_) self->showChoices();
    return G_SOURCE_REMOVE;
  }

  // The window.

  void openWindow() {
    answer_.hadWindow = true;
    window_ = GTK_WINDOW(gtk_window_new());
    gtk_window_set_title(window_, "Tervano");
    gtk_window_set_icon_name(window_, "tervano");
    g_signal_connect(window_, "close-request", G_CALLBACK(windowClosed), this);
    g_signal_connect(window_, "notify::is-active", G_CALLBACK(windowBecameActive), this);
    GtkEventController* const keys = gtk_shortcut_controller_new();
    gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
    gtk_shortcut_controller_add_shortcut(
        GTK_SHORTCUT_CONTROLLER(keys),
        gtk_shortcut_new(gtk_keyval_trigger_new(GDK_KEY_Escape, static_cast<GdkModifierType>(0)),
                         gtk_callback_action_new(escaped, nullptr, nullptr)));
    gtk_widget_add_controller(GTK_WIDGET(window_), keys);
    GtkWidget* const label = gtk_label_new(
        (request_.isPrimary ? tr("Reading the marked text") : tr("Reading the clipboard"))
            .shown()
            .c_str());
    gtk_widget_set_margin_top(label, kMargin);
    gtk_widget_set_margin_bottom(label, kMargin);
    gtk_widget_set_margin_start(label, kMargin);
    gtk_widget_set_margin_end(label, kMargin);
    gtk_window_set_child(window_, label);
    if (request_.chooses) gtk_window_set_default_size(window_, kWidth, kHeight);
    gtk_window_present(window_);
  }

  static gboolean windowClosed(GtkWindow* /*window*/, gpointer data) {
    auto* const self = static_cast<Session*>(data);
    self->window_ = nullptr;
    self->end(SelectionOutcome::refused);
    return FALSE;
  }

  static gboolean escaped(GtkWidget* widget, GVariant* /*arguments*/, gpointer /*data*/) {
    gtk_window_close(GTK_WINDOW(widget));
    return TRUE;
  }

  static void windowBecameActive(GObject* /*window*/, GParamSpec* /*property*/, gpointer data) {
    auto* const self = static_cast<Session*>(data);
    if (self->window_ == nullptr || gtk_window_is_active(self->window_) == FALSE) return;
    if (self->isWayland()) self->waitForContent();
    self->lookAtClipboard();
  }

  void showChoices() {
    GtkWidget* const column = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing);
    search_ = gtk_search_entry_new();
    g_object_set(search_, "placeholder-text", tr("Search").shown().c_str(), nullptr);
    g_signal_connect(search_, "search-changed", G_CALLBACK(searchChanged), this);
    g_signal_connect(search_, "activate", G_CALLBACK(searchActivated), this);
    list_ = gtk_list_box_new();
    gtk_list_box_set_selection_mode(GTK_LIST_BOX(list_), GTK_SELECTION_BROWSE);
    gtk_list_box_set_filter_func(GTK_LIST_BOX(list_), matches, this, nullptr);
    g_signal_connect(list_, "row-activated", G_CALLBACK(rowActivated), this);
    GtkWidget* const nothing = gtk_label_new(tr("No action fits").shown().c_str());
    gtk_list_box_set_placeholder(GTK_LIST_BOX(list_), nothing);
    for (auto& choice : choices_) {
      choice.title = shown(choice.title);
      GtkWidget* const label = gtk_label_new(choice.title.c_str());
      gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_MIDDLE);
      gtk_label_set_xalign(GTK_LABEL(label), 0);
      gtk_list_box_append(GTK_LIST_BOX(list_), label);
    }
    GtkWidget* const scroller = gtk_scrolled_window_new();
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), list_);
    gtk_widget_set_vexpand(scroller, TRUE);
    gtk_box_append(GTK_BOX(column), search_);
    gtk_box_append(GTK_BOX(column), scroller);
    gtk_window_set_child(window_, column);
    gtk_widget_grab_focus(search_);
    selectFirst();
  }

  static gboolean matches(GtkListBoxRow* row, gpointer data) {
    const auto* const self = static_cast<Session*>(data);
    const auto at = static_cast<std::size_t>(gtk_list_box_row_get_index(row));
    const std::string wanted = folded(gtk_editable_get_text(GTK_EDITABLE(self->search_)));
    return folded(self->choices_.at(at).title).find(wanted) != std::string::npos ? TRUE : FALSE;
  }

  void selectFirst() {
    for (int at = 0;; ++at) {
      GtkListBoxRow* const row = gtk_list_box_get_row_at_index(GTK_LIST_BOX(list_), at);
      if (row != nullptr && matches(row, this) == FALSE) continue;
      gtk_list_box_select_row(GTK_LIST_BOX(list_), row);
      return;
    }
  }

  static void searchChanged(GtkSearchEntry* /*entry*/, gpointer data) {
    auto* const self = static_cast<Session*>(data);
    gtk_list_box_invalidate_filter(GTK_LIST_BOX(self->list_));
    self->selectFirst();
  }

  static void searchActivated(GtkSearchEntry* /*entry*/, gpointer data) {
    auto* const self = static_cast<Session*>(data);
    // The signal of a change waits a moment, and somebody may be faster.
    searchChanged(nullptr, data);
    GtkListBoxRow* const row = gtk_list_box_get_selected_row(GTK_LIST_BOX(self->list_));
    if (row != nullptr) rowActivated(nullptr, row, data);
  }

  static void rowActivated(GtkListBox* /*list*/, GtkListBoxRow* row, gpointer data) {
    auto* const self = static_cast<Session*>(data);
    const auto at = static_cast<std::size_t>(gtk_list_box_row_get_index(row));
    self->answer_.uid = self->choices_.at(at).uid;
    self->end(SelectionOutcome::done);
  }

  const SessionRequest request_;
  SelectionAnswer answer_;
  GCancellable* cancellable_ = g_cancellable_new();
  GMainLoop* loop_ = nullptr;
  GdkDisplay* display_ = nullptr;
  GdkClipboard* clipboard_ = nullptr;
  // The kinds that are still to be tried, and the one that is read.
  std::vector<const char*> types_;
  const char* type_ = nullptr;
  std::string content_;
  bool isReading_ = false;
  bool hasRead_ = false;
  bool hasEnded_ = false;
  // Null when there is none.
  GtkWindow* window_ = nullptr;
  GtkWidget* search_ = nullptr;
  GtkWidget* list_ = nullptr;
  // Of the thread until it has posted them.
  std::vector<SelectionChoice> choices_;
};

}  // namespace

SelectionAnswer runSelectionSession(const SessionRequest& request) {
  // A thread of it may live as long as the process.
  static auto* const session = new Session(request);
  return session->run();
}

}  // namespace tervano
