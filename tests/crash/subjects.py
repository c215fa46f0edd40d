# SPDX-License-Identifier: Apache-2.0
"""What is updated while it is killed and failed: a registry of each format, with its model.

A subject has records to begin with, an update of them by each verb, further updates that always
succeed, and says what the file and a list of it hold. Records are what its model takes them for: the
global registry's records, or lines, or tuples. Not here: what stands on disk besides (protocol.py).
"""
import registry_model as model
import text_registry_model as text

KEY = 0x7  # Service, VersionCode, InstanceName
VERBS = ("add", "change", "delete")


class Update:
    """One update, as the driver's words and as a function from the records before to those after."""

    def __init__(self, words, apply):
        self.words, self.apply = words, apply


def command(verb, mask, key, new):
    """The driver's words; key and new are words themselves, or empty."""
    divider = ["--"] if verb == "change" else []
    return [verb, hex(mask), *key, *divider, *new]


def middle(count):
    """Which of `count` entries is changed or deleted."""
    return count // 2 // 5 * 5 + min(2, count // 2)


def instance(number, **more):
    values = dict(Service="CopyOne", VersionCode=0x0003000100000007, InstanceName=f"inst{number}")
    return model.make("instance", **values, **more)


class GlobalRegistry:
    """The one that is the same for all programs, and logs its changes."""

    name, logs_changes, options = "global", True, ()
    refuses_duplicates = True

    @staticmethod
    def standing(count):
        """Records of all types and lengths, one with fields of a later revision."""
        records = []
        for number in range(count):
            if number % 5 == 3:
                record = model.make("service", Service="CopyOne", VersionCode=7, Flag=65, Num4=number)
            elif number % 5 == 4:
                record = model.make("variable", Service="", Variable=f"V{number}", Value="x" * 200)
            else:
                path = "/home/" + "d" * (number * 37 % 400)
                record = instance(number, InstancePath=path, StartAtBoot=number % 2)
            if number % 5 == 2:
                record.entries[12] = b"of a later revision"
            records.append(record)
        return records

    @classmethod
    def update(cls, verb, count):
        number = middle(count)
        if verb == "add":
            return cls.update_with(verb, None, instance("new", InstancePath="/home/new", Comment="c" * 255))
        if verb == "change":
            return cls.update_with(verb, instance(number), instance(number, Usage="test", Comment="changed"))
        return cls.update_with(verb, instance(number), None)

    @classmethod
    def vain_update(cls, verb, count):
        """One that is refused."""
        if verb == "add":
            return cls.update_with(verb, None, instance(middle(count)))
        absent = instance("absent")
        return cls.update_with(verb, absent, absent if verb == "change" else None)

    @classmethod
    def next_update(cls, turn=0):
        return cls.update_with("add", None, instance(f"next{turn}", AuxPath="/home/next"))

    @staticmethod
    def update_with(verb, key, new):
        arguments = [record for record in (key, new) if record]

        def apply(records):
            status, after = getattr(model, verb)(records, KEY, *arguments)
            assert status == model.OK, hex(status)
            return after

        in_words = [model.words(record) if record else [] for record in (key, new)]
        return Update(command(verb, KEY, *in_words), apply)

    @staticmethod
    def contents(records):
        return model.frames(records)

    @staticmethod
    def listed(records):
        return [record.line() for record in records]


class TextRegistry:
    """A file of lines: entries between what updates must keep, the last line without a newline."""

    logs_changes = False

    def __init__(self, syntax, entry, kept, changes):
        """entry(number) is a line; kept lines stand between entries; changes go into a changed record."""
        self.syntax, self.entry, self.kept, self.changes = syntax, entry, kept, changes
        self.name, self.options = syntax.name, ("--format", syntax.name)
        self.refuses_duplicates = syntax is not text.Profile

    def standing(self, count):
        lines = []
        for number in range(count):
            if count > 1:
                lines.append(self.kept[number % len(self.kept)])
            lines.append(self.entry(number))
        if lines:
            lines[-1] = lines[-1].rstrip(b"\n")
        return lines

    def record(self, number):
        return self.syntax.parse(text.text_of(self.entry(number)))

    def update(self, verb, count):
        target = self.record(middle(count))
        new = {**self.record(9001), "comment": "added"} if verb == "add" else {**target, **self.changes}
        return self.update_of(verb, target, new)

    def vain_update(self, verb, count):
        """One that is refused."""
        record = self.record(middle(count) if verb == "add" else 9000)
        return self.update_of(verb, record, record)

    def update_of(self, verb, target, new):
        key = {name: target[name] for name in self.syntax.key_fields}
        if verb == "add":
            return self.update_with(verb, new=new)
        if verb == "change":
            return self.update_with(verb, key=key, new=new)
        return self.update_with(verb, key=key)

    def next_update(self, turn=0):
        return self.update_with("add", new=self.record(9002 + turn))

    def update_with(self, verb, **arguments):
        in_words = [text.words(self.syntax, arguments.get(name, {})) for name in ("key", "new")]
        made = getattr(text, verb)
        return Update(
            command(verb, self.syntax.key_mask, *in_words),
            lambda lines: made(self.syntax, lines, *arguments.values()),
        )

    @staticmethod
    def contents(lines):
        return b"".join(lines)

    def listed(self, lines):
        return [text.shown(self.syntax, line) for line in lines]


class BinaryVariables:
    """Frames without a packed form."""

    name, logs_changes, options = "binvar", False, ("--format", "binvar")
    refuses_duplicates = False

    @staticmethod
    def standing(count):
        return [(f"V{number}", number * 7, "c" * (number % 15)) for number in range(count)]

    @classmethod
    def update(cls, verb, count):
        target = f"V{middle(count)}"
        if verb == "add":
            return cls.adding(("new", 1, "added"))
        if verb == "delete":
            return cls.putting(verb, target, [])
        return cls.putting(verb, target, [(target, 12345, "changed")])

    @classmethod
    def vain_update(cls, verb, count):
        """One that is refused."""
        if verb == "add":
            return cls.adding((f"V{middle(count)}", 0, ""))
        return cls.putting(verb, "absent", [("absent", 1, "")] if verb == "change" else [])

    @classmethod
    def next_update(cls, turn=0):
        return cls.adding((f"next{turn}", 2, ""))

    @staticmethod
    def adding(record):
        words = command("add", 0x1, [], text.BinaryVariables.words(record))
        return Update(words, lambda records: [*records, record])

    @staticmethod
    def putting(verb, target, instead):
        """A change or a deletion: `instead` stands in the place of the record of that name."""
        new = text.BinaryVariables.words(instead[0]) if instead else []

        def apply(records):
            return [new for old in records for new in (instead if old[0] == target else [old])]

        return Update(command(verb, 0x1, [f"variable={target}"], new), apply)

    @staticmethod
    def contents(records):
        return b"".join(map(text.BinaryVariables.frame, records))

    @staticmethod
    def listed(records):
        return [text.BinaryVariables.shown(record) for record in records]


def profile_entry(number):
    """Every sixth and seventh entry have one name: a profile may hold it several times."""
    name = f"NAME{number - 1 if number % 7 == 3 else number}"
    return f"{' ' * (number % 3)}{name}{' ' * (number % 2)}=\tvalue {number}  # note\n".encode()


def service_entry(number):
    aliases = " ".join(f"alias{i}" for i in range(number % 3))
    return f"serv{number}  {1000 + number}/{('tcp', 'udp')[number % 2]} {aliases} # note\n".encode()


def init_entry(number):
    joined = "\\\n" if number % 3 == 2 else ""
    return f"i{number}:23:respawn:/sbin/program {joined}-n {number} # note\n".encode()


SUBJECTS = (
    GlobalRegistry(),
    TextRegistry(
        text.Profile,
        profile_entry,
        (b"# A comment\t# twice\n", b"\n", b"a line without its sign\n", b" \t\n", b"export A=1\n"),
        {"value": '"a new  value"', "comment": "changed"},
    ),
    TextRegistry(
        text.Services,
        service_entry,
        (b"# A comment\t# twice\n", b"\n", b"alone\n", b"other 7/sctp  x # kept\n", b"\t# more\n"),
        {"port": "768", "alias": ["longalias", "b"], "comment": "changed"},
    ),
    TextRegistry(
        text.InitTable,
        init_entry,
        (b"# A comment\t# twice\n", b"\n", b"without any colon\n", b":an old comment\n", b"::x:y\n"),
        {"action": "once", "command": "/sbin/other a:b", "comment": " changed"},
    ),
    BinaryVariables(),
)
NAMES = tuple(subject.name for subject in SUBJECTS)
