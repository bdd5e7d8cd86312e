# SPDX-License-Identifier: Apache-2.0
"""Numbers of all kinds where the package takes numbers: enumerators and what Python takes as an index are numbers, a bool is
none, and what does not fit is refused before a call."""

import enum
import fractions
import decimal
import ipaddress

import pytest

import aaautil
from aaautil import Attr, Attribute, AttributeList, Client, Expect, Set


class Kind(enum.IntEnum):
    SEVEN = 7
    NEGATIVE = -1
    LARGE = 1 << 70


class Flag(enum.IntFlag):
    SEVEN = 7


class Index:
    """As the integers of numpy: not derived from int, but an index."""

    def __init__(self, number):
        self.number = number

    def __index__(self):
        return self.number

    def __hash__(self):
        return hash(self.number)

    def __eq__(self, other):
        return self.number == other


class Sly(int):
    """Has one value when it is checked, and another when it is used."""

    def __index__(self):
        return 1 << 70

    def __int__(self):
        return 1 << 70

    def __le__(self, other):
        return True

    __ge__ = __lt__ = __gt__ = __le__

    def to_bytes(self, *arguments, **named):
        return b"sly"


SEVENS = [7, Kind.SEVEN, Flag.SEVEN, Index(7), Sly(7)]
NO_NUMBERS = [True, False, 7.0, "7", b"7", None, decimal.Decimal(7), fractions.Fraction(7), 7j, [7], object()]
TOO_LARGE = [1 << 32, -1, 1 << 64, -(1 << 70), Kind.NEGATIVE, Kind.LARGE, Index(-1), Index(1 << 70), Sly(-1)]


def ids(values):
    return [f"{type(value).__name__}-{number}" for number, value in enumerate(values)]


# What takes a number, and gives one back that is to be the same.
USES = {
    "an attribute": lambda number: AttributeList([("PRIV_LVL", number)])[0].value,
    "a tag": lambda number: Attribute.of("USERNAME", "x", tag=number).tag,
    "flags": lambda number: Attribute.of("USERNAME", "x", flags=number).flags,
    "a type": lambda number: Attribute.of(number, b"x").type,
    "a type of a list": lambda number: AttributeList([(number, b"x")])[0].type,
    "a type to replace": lambda number: 7 if AttributeList([(7, b"x")]).replace(number, b"y") is None else 0,
    "a type to discard": lambda number: AttributeList([(7, b"x")]).discard(number) * 7,
    "a type to get": lambda number: AttributeList([(7, b"\7")]).get_all(number)[0] and 7,
    "an address": lambda number: int(AttributeList([("IPADDR", number)])[0].value),
    "the name of a status": lambda number: 7 if aaautil.status_name(number) == aaautil.status_name(7) else 0,
    "the name of a service": lambda number: 7 if aaautil.service_name(number) == aaautil.service_name(7) else 0,
    "the name of a method": lambda number: 7 if aaautil.method_name(number) == aaautil.method_name(7) else 0,
    "the text of a code": lambda number: 7 if aaautil.code_text(number) == aaautil.code_text(7) else 0,
    "the number of a user": lambda number: Client("/nonexistent", servers=[number])._servers[0],
}
IN_DATABASE = {
    "an item": lambda database, number: database.set("x", number) or database.get("x"),
    "a field of a tuple": lambda database, number: database.set("x", (number,)) or database.get("x")[0],
    "the type of an item": lambda database, number: database.set("x", b"x", number) or database.get_item("x").type,
    "a change": lambda database, number: database.apply([Set("x", number), Expect("x", number)]) or database.get("x"),
}


@pytest.mark.parametrize("use", USES)
def test_every_kind_of_integer_is_a_number(use):
    for seven in SEVENS:
        found = USES[use](seven)
        assert found == 7 and isinstance(found, int), seven
    for wrong in NO_NUMBERS:
        if not (isinstance(wrong, str) and use in ("an address", "a type", "a type of a list")) and not isinstance(wrong, (bytes, str)):
            with pytest.raises(TypeError):
                USES[use](wrong)
    for wrong in TOO_LARGE:
        with pytest.raises(ValueError):
            USES[use](wrong)


@pytest.mark.parametrize("use", IN_DATABASE)
def test_every_kind_of_integer_is_a_number_of_the_database(database, use):
    for seven in SEVENS:
        found = IN_DATABASE[use](database, seven)
        assert found == 7 and type(found) is int, seven
    for wrong in [True, 7.0, decimal.Decimal(7), object()]:
        with pytest.raises(TypeError):
            IN_DATABASE[use](database, wrong)
    for wrong in [1 << 32, 1 << 64, -(1 << 70), Kind.LARGE, Index(1 << 70)]:
        with pytest.raises(ValueError):
            IN_DATABASE[use](database, wrong)
    database.set("x", (Index(-5), Kind.NEGATIVE, "a"))
    assert database.get("x") == (-5, -1, "a")


def test_a_number_of_eight_bytes_has_its_own_limit():
    most = (1 << 64) - 1
    assert AttributeList([("STARTTIME", Index(most))])[0].value == most
    for wrong in (Index(1 << 64), -1, Kind.LARGE):
        with pytest.raises(ValueError, match=f"from 0 to {most}"):
            AttributeList([("STARTTIME", wrong)])


def test_a_pair_made_by_hand_hides_its_secret_whatever_its_number_is():
    for number in (258, Attr.AAA_PASSWORD_ATTR, Index(258)):
        assert type(Attribute(number, 0, 0, b"x").raw) is aaautil.SecretBytes
    pair = Attribute(Index(258), Index(1), Kind.SEVEN, b"x")
    assert AttributeList.unpack(AttributeList([pair]).pack())[0] == (258, 1, 7, b"x")


def test_positions_are_no_attributes():
    made = AttributeList([("USERNAME", "alice"), ("PRIV_LVL", 7)])
    assert made[Index(1)].value == 7 and made[aaautil.Status.PASS].value == 7
    for number in (1, True, Index(1), Kind.SEVEN):
        with pytest.raises(TypeError, match="types"):
            number in made


def test_an_address_that_is_none_is_refused():
    for wrong in ("192.0.2", "", "192.0.2.256", "::1", "192.0.2.7/32"):
        with pytest.raises(ValueError):
            AttributeList([("IPADDR", wrong)])
    with pytest.raises(TypeError):
        AttributeList([("IPADDR", ipaddress.IPv6Address("::1"))])


@pytest.mark.parametrize("timeout, failure", [(True, TypeError), ("1", TypeError), (decimal.Decimal(1), TypeError), (0, ValueError),
                                              (-1, ValueError), (float("nan"), ValueError), (float("inf"), ValueError), (1 << 80, ValueError)])
def test_a_timeout_of_a_client_is_a_number_of_seconds(timeout, failure):
    with pytest.raises(failure, match="seconds"):
        Client("/nonexistent", timeout=timeout)
