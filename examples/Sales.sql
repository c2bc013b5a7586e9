-- SPDX-License-Identifier: Apache-2.0
-- The example that scripts/preview shows: a small shop's books.
PRAGMA foreign_keys = ON;
BEGIN;

CREATE TABLE customers (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  city TEXT NOT NULL,
  email TEXT UNIQUE,
  since DATE NOT NULL
);
CREATE TABLE items (
  sku TEXT PRIMARY KEY,
  title TEXT NOT NULL,
  price DECIMAL(10, 2) NOT NULL CHECK (price >= 0),
  stock INTEGER NOT NULL DEFAULT 0
) WITHOUT ROWID;
CREATE TABLE invoices (
  number INTEGER PRIMARY KEY,
  customer INTEGER NOT NULL REFERENCES customers (id),
  issued DATE NOT NULL,
  paid DATE
);
CREATE TABLE invoice_lines (
  invoice INTEGER NOT NULL REFERENCES invoices (number) ON DELETE CASCADE,
  line INTEGER NOT NULL,
  sku TEXT NOT NULL REFERENCES items (sku),
  quantity INTEGER NOT NULL CHECK (quantity > 0),
  price DECIMAL(10, 2) NOT NULL,
  total DECIMAL(10, 2) GENERATED ALWAYS AS (quantity * price) VIRTUAL,
  PRIMARY KEY (invoice, line)
);
CREATE TABLE "shipping notes" (invoice INTEGER REFERENCES invoices (number), note TEXT, label BLOB);

CREATE INDEX customers_by_city ON customers (city, name);
CREATE INDEX invoices_by_customer ON invoices (customer, issued);
CREATE INDEX lines_by_item ON invoice_lines (sku);
CREATE VIEW unpaid AS
  SELECT invoices.number, customers.name, sum(invoice_lines.total) AS due
  FROM invoices JOIN customers ON customers.id = invoices.customer
  JOIN invoice_lines ON invoice_lines.invoice = invoices.number
  WHERE invoices.paid IS NULL GROUP BY invoices.number;
CREATE TRIGGER stock_falls AFTER INSERT ON invoice_lines
BEGIN
  UPDATE items SET stock = stock - new.quantity WHERE sku = new.sku;
END;

WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 240)
INSERT INTO customers
SELECT i, 'Customer ' || i, json_extract('["Bilbao","Porto","Graz","Turku","Ghent","Łódź"]', '$[' || (i % 6) || ']'),
       'customer' || i || '@example.com', date('2021-01-01', '+' || (i * 7) || ' days') FROM n;

WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 60)
INSERT INTO items SELECT printf('SKU-%04d', i), 'Item ' || i, 4.5 + i * 1.25, 500 + i FROM n;

WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 900)
INSERT INTO invoices
SELECT 20000 + i, 1 + i * 37 % 240, date('2025-01-02', '+' || (i / 2) || ' days'),
       CASE WHEN i % 9 THEN date('2025-01-20', '+' || (i / 2) || ' days') END FROM n;

WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 3)
INSERT INTO invoice_lines (invoice, line, sku, quantity, price)
SELECT number, i, sku, 1 + (number + i) % 4, price
FROM invoices, n JOIN items ON sku = printf('SKU-%04d', 1 + (number * 3 + i) % 60);

INSERT INTO "shipping notes"
SELECT number, 'Leave with the neighbour.', x'89504e470d0a1a0a' FROM invoices WHERE number % 25 = 0;

COMMIT;
