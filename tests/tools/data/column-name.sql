CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Min, Max);
INSERT INTO kel VALUES(1,'Speed',0,0,1,2,9,5.0,1.0,0.0,10.0);
