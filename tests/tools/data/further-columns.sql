CREATE TABLE kel (ID INTEGER, NameID TEXT, CommSource INTEGER, DBSource INTEGER, RW INTEGER, Block INTEGER,
    ValueT INTEGER, Value NUMERIC, DefValue NUMERIC, Max NUMERIC, Min NUMERIC, Note TEXT, Twice AS (2 * Value));
INSERT INTO kel VALUES (1, 'Word', 0, 0, 0, 0, 1, 5, 5, 9, 0, 'spare');
