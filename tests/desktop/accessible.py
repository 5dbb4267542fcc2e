"""What programs show, read over the accessibility bus itself. Nothing is remembered between two
looks, since programs change their widgets at any time; whatever vanishes meanwhile is left out."""
from gi.repository import Gio, GLib

MENU_ROLES = {"menu item", "menu", "check menu item", "radio menu item", "separator"}
# States, by their numbers on the bus.
ENABLED, SELECTED, SENSITIVE, SHOWING, VISIBLE = 8, 23, 24, 25, 30

_ACCESSIBLE = "org.a11y.atspi.Accessible"
_ACTION = "org.a11y.atspi.Action"
_COMPONENT = "org.a11y.atspi.Component"
_TIMEOUT = 5000

_connection = None


def _connect(address):
    return Gio.DBusConnection.new_for_address_sync(
        address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
        Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)


def connect(session_address):
    """Before anything else: the accessibility bus of that session."""
    global _connection
    address, = _connect(session_address).call_sync(
        "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", None, None,
        Gio.DBusCallFlags.NONE, -1, None).unpack()
    _connection = _connect(address)


def _call_all(requests):
    """Sends all the requests (sender, path, interface, method, arguments) at once; the answers as
    tuples in the same order, None for one that failed."""
    answers = [None] * len(requests)
    left = len(requests)

    def answered(_, result, index):
        nonlocal left
        left -= 1
        try:
            answers[index] = _connection.call_finish(result).unpack()
        except GLib.Error:
            pass

    for index, (sender, path, interface, method, arguments) in enumerate(requests):
        _connection.call(sender, path, interface, method, arguments, None, Gio.DBusCallFlags.NONE,
                    _TIMEOUT, None, answered, index)
    while left:
        GLib.MainContext.default().iteration(True)
    return answers


def _call(*request):
    return _call_all([request])[0]


class Node:
    """A widget as it was at the look: its name, role, states and the widgets inside it."""

    def __init__(self, sender, path):
        self.sender = sender
        self.path = path
        self.name = ""
        self.role = ""
        self.states = 0
        self.children = []

    def has(self, state):
        return bool(self.states >> state & 1)

    def walk(self):
        yield self
        for child in self.children:
            yield from child.walk()

    def find_all(self, name=None, roles=None):
        return [node for node in self.walk()
                if name in (None, node.name) and (roles is None or node.role in roles)]

    def find(self, name=None, roles=None):
        return next(iter(self.find_all(name, roles)), None)

    def extents(self):
        """x, y, width and height on the screen, now; zeros when it has none."""
        answer = _call(self.sender, self.path, _COMPONENT, "GetExtents", GLib.Variant("(u)", (0,)))
        return answer[0] if answer else (0, 0, 0, 0)

    def do_action(self, name=None):
        """Whether it has that action (without a name: any) and took it."""
        actions = _call(self.sender, self.path, _ACTION, "GetActions", None)
        if not actions:
            return False
        numbers = [number for number, action in enumerate(actions[0]) if name in (None, action[0])]
        if not numbers and name is not None:
            names = [_call(self.sender, self.path, _ACTION, "GetName", GLib.Variant("(i)", (number,)))
                     for number in range(len(actions[0]))]
            numbers = [number for number, found in enumerate(names) if found == (name,)]
        return bool(numbers) and _call(self.sender, self.path, _ACTION, "DoAction",
                                       GLib.Variant("(i)", (numbers[0],))) == (True,)

    def dump(self, depth=0):
        """For a look by eye."""
        states = "".join(letter for letter, state in
                         (("e", SENSITIVE), ("s", SHOWING), ("v", VISIBLE)) if self.has(state))
        print("  " * depth + f"{self.role} {self.name!r} {states}")
        for child in self.children:
            child.dump(depth + 1)


def _look(node, closed_roles):
    level = [node]
    while level:
        requests = []
        for node_ in level:
            where = (node_.sender, node_.path)
            requests += [
                (*where, "org.freedesktop.DBus.Properties", "Get",
                 GLib.Variant("(ss)", (_ACCESSIBLE, "Name"))),
                (*where, _ACCESSIBLE, "GetRoleName", None), (*where, _ACCESSIBLE, "GetState", None),
                (*where, _ACCESSIBLE, "GetChildren", None)]
        answers = _call_all(requests)
        following = []
        for index, node_ in enumerate(level):
            name, role, states, children = answers[4 * index:4 * index + 4]
            node_.name = name[0] if name else ""
            node_.role = role[0] if role else ""
            node_.states = states[0][0] | states[0][1] << 32 if states else 0
            if node_.role in closed_roles:
                continue
            for sender, path in children[0] if children else ():
                if sender and not path.endswith("/null"):
                    child = Node(sender, path)
                    node_.children.append(child)
                    following.append(child)
        level = following
    return node


def application(pid, closed_roles=()):
    """The program of that process with everything it shows, except for what is in widgets of those
    roles; None while it is not on the bus."""
    children = _call("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root", _ACCESSIBLE,
                     "GetChildren", None)
    for sender, path in children[0] if children else ():
        answer = _call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                       "GetConnectionUnixProcessID", GLib.Variant("(s)", (sender,)))
        if answer == (pid,):
            return _look(Node(sender, path), closed_roles)
    return None
