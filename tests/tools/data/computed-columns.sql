CREATE TABLE kel (ID INTEGER, NameID TEXT, CommSource INTEGER, DBSource INTEGER, RW INTEGER, Block INTEGER,
    ValueT INTEGER, Value NUMERIC, DefValue NUMERIC, Max NUMERIC, Min NUMERIC GENERATED ALWAYS AS (Max - 1));
INSERT INTO kel (ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max)
    VALUES (1, 'Word', 0, 0, 0, 0, 1, 5, 5, 9);
