"""Client of the application configuration service.

    with appcfg.Connection() as connection:
        with connection.create("radio", "network", path="/usr/setting/network.json") as item:
            item["wifi.ssid"] = "home"
            print(item["wifi.ssid"], item.get("mtu", 1500))

A connection owns the items that it creates: they end at the service when it closes. A connection and its items are
used by one thread at a time. Values are texts; get() reads one as the type of its default.
"""

from __future__ import annotations

import ctypes
import enum
from types import TracebackType
from typing import Callable, Mapping, Optional, Sequence, Type, TypeVar, Union

Value = Union[str, int, float, bool]
T = TypeVar("T", str, int, float, bool)


class Storage(enum.IntEnum):
    INI = 0
    XML = 1
    JSON = 3


class Strategy(enum.IntEnum):
    NEVER = 0
    INSTANT = 1
    DELAYED = 2
    TIMED = 3


class Request(enum.IntEnum):
    NONE = -1
    CREATE = 0
    DELETE = 1
    GET = 2
    SET = 3
    RAW_GET = 4
    RAW_SET = 5
    RESTORE = 6
    CHANGE_KEY = 7


class Error(Exception):
    """Anything that went wrong; the subclasses say what."""


class Refused(Error):
    """The service answered with another status than 200."""

    def __init__(self, message: str, request: Request, status: int) -> None:
        super().__init__(message)
        self.request = request
        self.status = status


class Invalid(Error, ValueError):
    """An argument that cannot be sent; nothing was sent."""


class NoConnection(Error, ConnectionError):
    """The service cannot be reached, or the connection was lost."""


class TimedOut(NoConnection, TimeoutError):
    """Not done in time; whether the request was carried out is not known."""


class NoSuchValue(Error, ValueError):
    """What was read is not of the type that was asked for."""


class _Error(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("result", ctypes.c_int32), ("request", ctypes.c_int32),
                ("status", ctypes.c_int32), ("message", ctypes.c_char * 512)]


class _Description(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("owner", ctypes.c_char_p), ("name", ctypes.c_char_p),
                ("index", ctypes.c_uint32), ("storage", ctypes.c_int32), ("path", ctypes.c_char_p),
                ("backup_path", ctypes.c_char_p), ("default_path", ctypes.c_char_p), ("save_strategy", ctypes.c_int32),
                ("backup_strategy", ctypes.c_int32), ("key", ctypes.c_char_p), ("iv", ctypes.c_char_p)]


_Told = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)
_KEY_BYTES, _IV_BYTES = 32, 16


def _load() -> ctypes.CDLL:
    library = ctypes.CDLL("libappcfg.so.1")
    pointer, text, texts = ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_char_p)
    error = ctypes.POINTER(_Error)
    signatures = {
        "connect": (pointer, ctypes.c_double, error),
        "close": (None, pointer),
        "keep_items": (None, pointer, _Told, pointer),
        "create": (pointer, pointer, ctypes.POINTER(_Description), error),
        "open": (pointer, pointer, text, text, ctypes.c_uint32, error),
        "item_free": (None, pointer),
        "item_release": (None, pointer),
        "get_many": (ctypes.c_int, pointer, texts, ctypes.c_size_t, ctypes.POINTER(pointer), error),
        "set_many": (ctypes.c_int, pointer, texts, texts, ctypes.c_size_t, error),
        "raw_get": (pointer, pointer, text, error),
        "raw_set": (ctypes.c_int, pointer, text, text, error),
        "restore": (ctypes.c_int, pointer, error),
        "change_key": (ctypes.c_int, pointer, text, text, error),
        "delete": (ctypes.c_int, pointer, error),
        "free": (None, pointer),
    }
    for name, (result, *arguments) in signatures.items():
        function = getattr(library, "appcfg_" + name)
        function.restype, function.argtypes = result, arguments
    return library


_library = _load()


def _new_error() -> _Error:
    return _Error(ctypes.sizeof(_Error))


def _raise(error: _Error) -> None:
    message = error.message.decode(errors="replace")
    if error.result == 1:
        raise Refused(message, Request(error.request), error.status)
    if error.result == 6:
        raise MemoryError(message)
    raise {2: Invalid, 3: NoConnection, 4: TimedOut, 5: NoSuchValue}.get(error.result, Error)(message)


def _bytes(text: str) -> bytes:
    """A text for C, which would end at its first NUL."""
    if "\0" in text:
        raise Invalid("a text holds a NUL")
    return text.encode()


def _texts(values: Sequence[str]) -> "ctypes.Array[ctypes.c_char_p]":
    return (ctypes.c_char_p * len(values))(*[_bytes(value) for value in values])


def _taken(address: int) -> str:
    """A text that C returned, which is freed."""
    try:
        return (ctypes.string_at(address)).decode(errors="surrogateescape")
    finally:
        _library.appcfg_free(address)


def _key_bytes(key: Optional[bytes], iv: Optional[bytes]) -> tuple[Optional[bytes], Optional[bytes]]:
    if key is not None and (len(key) != _KEY_BYTES or iv is None or len(iv) != _IV_BYTES):
        raise Invalid(f"a key has {_KEY_BYTES} bytes, its IV {_IV_BYTES}")
    return key, iv


class _Owner:
    """What C made for it, given back once: at the end of a with, by close() or by the collector."""

    _address: Optional[int] = None

    def close(self) -> None:
        raise NotImplementedError

    def __exit__(self, kind: Optional[Type[BaseException]], fault: Optional[BaseException],
                 trace: Optional[TracebackType]) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def _give_up(self, free: Callable[[int], None]) -> None:
        address, self._address = self._address, None
        if address is not None:
            free(address)


class Item(_Owner):
    """One item, made by a connection. Like a dictionary of texts, but keys come and go with the document alone."""

    def __init__(self, connection: Connection, address: int) -> None:
        self._connection = connection
        self._address = address

    def __enter__(self) -> Item:
        return self

    def __getitem__(self, key: str) -> str:
        """The value; KeyError when the document has none that can be read."""
        try:
            return self.get_many([key])[0]
        except Refused as fault:
            if fault.status == 400:
                raise KeyError(key) from fault
            raise

    def __setitem__(self, key: str, value: Value) -> None:
        self.set_many({key: value})

    def get(self, key: str, default: T) -> T:
        """The value as the type of the default, which is returned when there is none; NoSuchValue when it is no
        such value."""
        try:
            text = self[key]
        except KeyError:
            return default
        return _parsed(text, default)

    def get_many(self, keys: Sequence[str]) -> list[str]:
        """The values of the keys, all or nothing, in one request."""
        values = (ctypes.c_void_p * len(keys))()
        self._call("get_many", _texts(keys), len(keys), values)
        return [_taken(value) for value in values if value is not None]

    def set_many(self, values: Mapping[str, Value]) -> None:
        """Changes values of keys that the document has, in one request, up to the first that is refused."""
        self._call("set_many", _texts(list(values)), _texts([_text(value) for value in values.values()]), len(values))

    def raw_get(self, key: str = "") -> str:
        """A fragment of the document, all of it for the empty key."""
        error = _new_error()
        address = _library.appcfg_raw_get(self._open(), _bytes(key), error)
        if address is None:
            _raise(error)
        return _taken(address)

    def raw_set(self, key: str, data: str) -> None:
        self._call("raw_set", _bytes(key), _bytes(data))

    def restore(self) -> None:
        """Puts the default file in place; compare values where it matters whether it could be loaded."""
        self._call("restore")

    def change_key(self, key: Optional[bytes], iv: Optional[bytes] = None) -> None:
        """Rewrites the files in another key, or plain for None."""
        self._call("change_key", *_key_bytes(key, iv))

    def delete(self) -> None:
        """Ends the item at the service, whoever created it."""
        self._call("delete")

    def close(self) -> None:
        """Ends an item that was created here; what was only opened is left alone."""
        self._give_up(_library.appcfg_item_free)

    def release(self) -> None:
        """Leaves the item to its connection."""
        self._give_up(_library.appcfg_item_release)

    def _open(self) -> int:
        if self._address is None:
            raise Invalid("the item is closed")
        return self._address

    def _call(self, name: str, *arguments: object) -> None:
        error = _new_error()
        if getattr(_library, "appcfg_" + name)(self._open(), *arguments, error) != 0:
            _raise(error)


class Connection(_Owner):
    """A connection to the service below KESTREL_ROOT or /mnt/kestrel. Seconds bound the connect and each request."""

    def __init__(self, timeout: float = 90.0) -> None:
        self._told: Optional[object] = None
        error = _new_error()
        self._address = _library.appcfg_connect(timeout, error)
        if self._address is None:
            _raise(error)

    def __enter__(self) -> Connection:
        return self

    def keep_items(self, told: Optional[Callable[[str], None]] = None) -> None:
        """From now on a lost connection is made again, with the items created since; then told hears the reason."""
        def call(reason: bytes, _context: Optional[int]) -> None:
            if told is not None:
                told(reason.decode(errors="replace"))
        self._told = _Told(call)  # lives as long as it may be called
        _library.appcfg_keep_items(self._open(), self._told, None)

    def create(self, owner: str, name: str, index: int = 0, *, path: str, backup: str = "", default: str = "",
               storage: Storage = Storage.JSON, save: Strategy = Strategy.INSTANT,
               backup_strategy: Strategy = Strategy.INSTANT, key: Optional[bytes] = None,
               iv: Optional[bytes] = None) -> Item:
        """Creates an item; one that has the same handle is ended first, whoever created it."""
        key, iv = _key_bytes(key, iv)
        description = _Description(ctypes.sizeof(_Description), _bytes(owner), _bytes(name), index, storage, _bytes(path),
                                   _bytes(backup), _bytes(default), save, backup_strategy, key, iv)
        return self._item(lambda error: _library.appcfg_create(self._open(), description, error))

    def open(self, owner: str, name: str, index: int = 0) -> Item:
        """Reaches an item that any connection created, without a request."""
        return self._item(lambda error: _library.appcfg_open(self._open(), _bytes(owner), _bytes(name), index, error))

    def close(self) -> None:
        """Closes the connection; its items end."""
        self._give_up(_library.appcfg_close)

    def _open(self) -> int:
        if self._address is None:
            raise NoConnection("the connection is closed")
        return self._address

    def _item(self, make: Callable[[_Error], Optional[int]]) -> Item:
        error = _new_error()
        address = make(error)
        if address is None:
            _raise(error)
            raise AssertionError
        return Item(self, address)


def _text(value: Value) -> str:
    """A value as the service's other clients write it."""
    if isinstance(value, bool):
        return "true" if value else "false"
    return repr(value) if isinstance(value, float) else str(value)


def _parsed(text: str, default: T) -> T:
    try:
        if isinstance(default, bool):
            word = text.lower()
            if word not in _WORDS:
                raise ValueError(text)
            return _WORDS[word]
        return type(default)(text)
    except ValueError as fault:
        raise NoSuchValue(f"'{text}' is no {type(default).__name__}") from fault


_WORDS = {**dict.fromkeys(("true", "yes", "on", "1"), True), **dict.fromkeys(("false", "no", "off", "0"), False)}
