CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);
INSERT INTO kel VALUES(1,NULL,'a',NULL,x'00',300,9,'5',NULL,10.0,0.0);
INSERT INTO kel VALUES(2,'Force',1.5,0,1,2,6,3.7,x'01',10,'a');
INSERT INTO kel VALUES(3,4,0,0,1,2,6,3,1,10,0);
