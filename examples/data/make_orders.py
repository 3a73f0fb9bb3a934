#!/usr/bin/python3
"""Writes orders.csv, the sample orders of `make run`: a few thousand rows of order id, order
date, customer (names with accented letters, a few holding a comma, so quoted), city, price
(NUMBER with two decimals), quantity (an integer), with some fields left empty.

The same seed always gives the same file: run it again after changing it, and commit both.
usage: make_orders.py [OUTPUT] (default: orders.csv beside this script)
"""
import csv
import datetime
import os
import random
import sys

ROWS = 3000
SEED = 20240315
FIRST = ["José", "Zoë", "François", "Åsa", "Jürgen", "Søren", "Chloé", "Íñigo", "Ana", "Mary",
         "Björn", "Élodie", "Łukasz", "Ines", "Tomás", "Noémie", "Oğuz", "Renée", "Kai", "Li"]
LAST = ["Martínez", "Müller", "Lefèvre", "Öberg", "Nørgaard", "Dvořák", "García", "Smith",
        "Brontë", "Čapek", "Ibáñez", "Kowalski", "Łopez", "O'Brien", "Naïm", "Weiß"]
CITIES = ["München", "Malmö", "São Paulo", "Zürich", "Kraków", "Reykjavík", "Besançon", "Lyon",
          "Göteborg", "Córdoba", "Oslo", "Dublin"]


def customer(rng):
    name = rng.choice(FIRST) + " " + rng.choice(LAST)
    if rng.random() < 0.03:
        name = rng.choice(LAST) + ", " + rng.choice(FIRST)
    return name


def row(rng, order_id, start):
    day = start + datetime.timedelta(days=rng.randrange(730))
    cents = rng.randint(99, 49999)
    blank = lambda share, text: "" if rng.random() < share else text
    return [order_id, day.isoformat(), blank(0.02, customer(rng)), blank(0.02, rng.choice(CITIES)),
            blank(0.01, "%d.%02d" % (cents // 100, cents % 100)),
            blank(0.03, str(rng.choice([1, 1, 1, 2, 2, 3, 4, 5, 10, 12, 24])))]


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "orders.csv")
    rng = random.Random(SEED)
    start = datetime.date(2023, 1, 1)
    with open(path, "w", newline="", encoding="utf-8") as f:
        out = csv.writer(f, lineterminator="\n")
        out.writerow(["order_id", "order_date", "customer", "city", "price", "quantity"])
        for order_id in range(100001, 100001 + ROWS):
            out.writerow(row(rng, order_id, start))


if __name__ == "__main__":
    main()
