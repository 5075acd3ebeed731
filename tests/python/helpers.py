"""What many tests need."""


def nested(part):
    """An array as nested lists, by iteration alone."""
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


def outcome(call, *arguments):
    """What the call gives, or the class and the text of its exception."""
    try:
        return call(*arguments)
    except Exception as error:
        return type(error), str(error)


class Foreign:
    """A sequence that calls `fetch` before it gives an item, and `length` for its length."""

    def __init__(self, items, fetch=None, length=None):
        self.items = list(items)
        self.fetch = fetch
        self.length = length

    def __len__(self):
        return self.length() if self.length else len(self.items)

    def __getitem__(self, position):
        item = self.items[position]
        if self.fetch:
            self.fetch()
        return item


class Index:
    """An integer, after an action."""

    def __init__(self, value, action=int):
        self.value = value
        self.action = action

    def __index__(self):
        self.action()
        return self.value
