"""The errors the package raises."""


class LawError(Exception):
    """An error raised by the law library: `code` is its identifier (such as
    "LAW_ZERODIVIDE"), `message` its text and `number` its numeric code."""

    def __init__(self, code, message, number=0):
        super().__init__(code, message)
        self.code = code
        self.message = message
        self.number = number

    def __str__(self):
        return f"{self.code}: {self.message}"


class LawSyntaxError(LawError):
    """A formula that does not read: `offset` is where in `text` it failed (-1 when
    the reader gave no place)."""

    def __init__(self, message, text="", offset=-1):
        super().__init__("LAW_SYNTAX", message)
        self.text = text
        self.offset = offset

    def __str__(self):
        if self.offset < 0:
            return self.message
        return f"{self.message}\n  {self.text}\n  {' ' * self.offset}^"
